// sarvendo: the engine from a shell. Loads documents into a grid, sends one
// request and prints the response; `save` applies a change document; `serve`
// answers browsers (Serve.h). Errors are one line on stderr and a non-zero
// exit: 1 for a failure of the work, 2 for a wrong command line.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <functional>
#include <iostream>
#include <string>
#include <vector>

#include "Host.h"
#include "Serve.h"

namespace {

struct Options {
  std::vector<std::string> documents;
  std::string request;     // file or "-"; empty: none
  std::string body;        // body request sent first; empty: none
  std::string changes;     // change document applied first
  int flags = 0;           // of SaveEx
  std::string out;         // save: file written by SaveToFile
  std::string xlsx;        // export: workbook written by SaveExportXlsx
  std::string row, column, format;
  int cellFlags = 0;
  int repeat = 1;
  bool time = false;
  ServeOptions serve;
};

// Runs one step `repeat` times and reports its time when asked.
class Steps {
public:
  explicit Steps(const Options& options) : report_(options.time || options.repeat > 1) {}

  template <class Work>
  auto Run(const char* name, int repeat, Work work) -> decltype(work()) {
    using Clock = std::chrono::steady_clock;
    double best = 0, total = 0;
    for (int i = 1;; i++) {
      auto start = Clock::now();
      auto result = work();
      double ms = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
      best = i == 1 || ms < best ? ms : best;
      total += ms;
      if (i >= repeat) {
        if (report_) Report(name, repeat, best, total);
        return result;
      }
    }
  }

private:
  static void Report(const char* name, int repeat, double best, double total) {
    if (repeat == 1) {
      std::fprintf(stderr, "%s: %.3f ms\n", name, total);
    } else {
      std::fprintf(stderr, "%s: %d runs, best %.3f ms, mean %.3f ms\n", name, repeat, best, total / repeat);
    }
  }

  bool report_;
};

std::string OptionalInput(const std::string& name) { return name.empty() ? std::string() : ReadInput(name); }

const char* OrNull(const std::string& text) { return text.empty() ? nullptr : text.c_str(); }

void Print(const Text& text) {
  std::string_view view(text.get());
  std::fwrite(view.data(), 1, view.size(), stdout);
  if (view.empty() || view.back() != '\n') std::fputc('\n', stdout);
}

// Applies --changes, if any; the engine's code is an error below 0.
void ApplyChanges(const Grid& grid, const Options& options, Steps& steps) {
  if (options.changes.empty()) return;
  std::string changes = ReadInput(options.changes);
  int result = steps.Run("save", 1, [&] { return SaveExA(grid.Index(), changes.c_str(), options.flags); });
  if (result == -3) throw Failure("the change document is not well-formed XML");
  if (result < 0) throw Failure("the changes were refused (code " + std::to_string(result) + ")");
}

void SendBody(const Grid& grid, const std::string& request, Steps& steps, int repeat) {
  Text text(steps.Run("body", repeat, [&] { return Text(GetBodyA(grid.Index(), OrNull(request))); }));
  if (!text) throw Failure("the body request is not well-formed XML");
}

std::unique_ptr<Grid> Load(const Options& options, Steps& steps) {
  return steps.Run("load", 1, [&] { return std::make_unique<Grid>(options.documents, true); });
}

// Loads the grid, applies changes and sends the preparing body request.
std::unique_ptr<Grid> Prepare(const Options& options, Steps& steps) {
  std::string body = OptionalInput(options.body);
  auto grid = Load(options, steps);
  ApplyChanges(*grid, options, steps);
  if (!options.body.empty()) SendBody(*grid, body, steps, 1);
  return grid;
}

// Prepares the grid, then runs `work` as the timed step `name` and prints
// its text; `nothing` tells what a null answer means.
int Respond(const Options& options, const char* name, const std::function<char*(int, const char*)>& work,
            const char* nothing) {
  std::string request = OptionalInput(options.request);
  Steps steps(options);
  auto grid = Prepare(options, steps);
  Text text(steps.Run(name, options.repeat, [&] { return Text(work(grid->Index(), OrNull(request))); }));
  if (!text) throw Failure(nothing);
  Print(text);
  return 0;
}

const char* const NoExportRequest = "<Grid/>";

// Writes the export as a workbook; the engine's codes become one-line errors.
int WorkbookCommand(const Options& options) {
  std::string request = OptionalInput(options.request);
  Steps steps(options);
  auto grid = Prepare(options, steps);
  const char* xml = request.empty() ? NoExportRequest : request.c_str();
  int result = steps.Run("workbook", options.repeat,
                         [&] { return SaveExportXlsxA(grid->Index(), xml, options.xlsx.c_str()); });
  switch (result) {
    case 0: return 0;
    case -3: throw Failure("the export request is not well-formed XML");
    case SARVENDO_UNWRITABLE: throw Failure("cannot write '" + options.xlsx + "'");
    case SARVENDO_UNAVAILABLE: throw Failure("the workbook export is not available in this build");
    case SARVENDO_TOO_MANY_ROWS: throw Failure("the grid has more rows than a workbook sheet holds");
    default: throw Failure("the workbook failed (code " + std::to_string(result) + ")");
  }
}

int ExportCommand(const Options& options) {
  if (!options.xlsx.empty()) return WorkbookCommand(options);
  return Respond(options, "export", [](int index, const char* request) {
    return GetExportA(index, request ? request : NoExportRequest);
  }, "the export request is not well-formed XML");
}

int SaveCommand(const Options& options) {
  Steps steps(options);
  auto grid = Load(options, steps);
  ApplyChanges(*grid, options, steps);
  if (!options.out.empty()) {
    // Flags 0: IO, Cfg, Body, Head and Foot, as the engine writes by default.
    int result = steps.Run("write", 1, [&] { return SaveToFileA(grid->Index(), options.out.c_str(), 0); });
    if (result == -1) throw Failure("cannot write '" + options.out + "'");
    if (result < 0) throw Failure("writing '" + options.out + "' failed (code " + std::to_string(result) + ")");
    return 0;
  }
  Text text(steps.Run("data", options.repeat, [&] { return Text(GetDataA(grid->Index())); }));
  if (!text) throw Failure("the grid gave no document");
  Print(text);
  return 0;
}

void AddDocuments(CLI::App* command, Options& options) {
  command->add_option("DOC", options.documents, "documents: file names or XML texts, loaded in this order")
      ->required()
      ->expected(1, static_cast<int>(Grid::MaxDocuments));
}

void AddCommon(CLI::App* command, Options& options) {
  AddDocuments(command, options);
  command->add_option("--changes", options.changes, "change document (file or -) applied first");
  command->add_option("--flags", options.flags, "flags of the save: 1 logs the changes, 2 the new ids");
  command->add_option("--repeat", options.repeat, "run the request N times")->check(CLI::Range(1, 1000000));
  command->add_flag("--time", options.time, "print how long each step took on stderr");
}

void AddRequest(CLI::App* command, Options& options) {
  command->add_option("--request", options.request, "request document (file or -)");
  command->add_option("--body", options.body, "body request (file or -) sent before the request");
}

using Handler = std::function<int()>;

void AddResponseCommands(CLI::App& app, Options& options, Handler& run) {
  struct Kind {
    const char* name;
    const char* help;
    std::function<char*(int, const char*)> work;
    const char* nothing;
  };
  const Kind kinds[] = {
      {"body", "answer a body request", [](int index, const char* request) { return GetBodyA(index, request); },
       "the request is not well-formed XML"},
      {"page", "answer a page request (first page by default)",
       [](int index, const char* request) {
         return GetPageA(index, request ? request : "<Grid><Body><B Pos=\"0\"/></Body></Grid>");
       },
       "no such page or row, or the request is not well-formed XML"},
      {"data", "print the whole grid as a document", [](int index, const char*) { return GetDataA(index); },
       "the grid gave no document"},
      {"changes", "print the log of changes", [](int index, const char*) { return GetChangesA(index, 0); },
       "the grid gave no log"},
  };
  for (const Kind& kind : kinds) {
    CLI::App* command = app.add_subcommand(kind.name, kind.help);
    AddCommon(command, options);
    AddRequest(command, options);
    command->callback([&options, &run, kind] {
      run = [&options, kind] { return Respond(options, kind.name, kind.work, kind.nothing); };
    });
  }
  CLI::App* exporter = app.add_subcommand("export", "print the grid as an HTML sheet, or write a workbook");
  AddCommon(exporter, options);
  AddRequest(exporter, options);
  exporter->add_option("--xlsx", options.xlsx, "write an .xlsx workbook to this file instead");
  exporter->callback([&options, &run] { run = [&options] { return ExportCommand(options); }; });

  CLI::App* cells = app.add_subcommand("cells", "print one cell, or the values of a column");
  AddCommon(cells, options);
  cells->add_option("--body", options.body, "body request (file or -) sent first");
  cells->add_option("--row", options.row, "row id");
  cells->add_option("--col", options.column, "column name")->required();
  cells->add_option("--cell-flags", options.cellFlags, "flags of the cell query");
  cells->add_option("--format", options.format, "format of the values");
  cells->callback([&options, &run] {
    run = [&options] {
      return Respond(options, "cells", [&options](int index, const char*) {
        return GetCellsA(index, options.row.c_str(), options.cellFlags, options.column.c_str(),
                         OrNull(options.format));
      }, "no such row or column");
    };
  });
}

void AddSaveCommand(CLI::App& app, Options& options, Handler& run) {
  CLI::App* save = app.add_subcommand("save", "apply a change document and print or write the saved grid");
  AddDocuments(save, options);
  save->add_option("--changes", options.changes, "change document (file or -)")->required();
  save->add_option("--flags", options.flags, "flags of the save: 1 logs the changes, 2 the new ids");
  save->add_option("--out", options.out, "write the saved grid to this file instead");
  save->add_option("--repeat", options.repeat, "print the document N times over")->check(CLI::Range(1, 1000000));
  save->add_flag("--time", options.time, "print how long each step took on stderr");
  save->callback([&options, &run] { run = [&options] { return SaveCommand(options); }; });
}

void AddServeCommand(CLI::App& app, Options& options, Handler& run) {
  CLI::App* serve = app.add_subcommand("serve", "serve the grid and the demo page over HTTP");
  AddDocuments(serve, options);
  serve->add_option("--host", options.serve.host, "address to listen on")->capture_default_str();
  serve->add_option("--port", options.serve.port, "port; 0 picks a free one")
      ->capture_default_str()
      ->check(CLI::Range(0, 65535));
  serve->add_option("--web", options.serve.web, "folder of the page (default: the installed one)");
  serve->add_option("--sessions", options.serve.maxSessions, "most browser sessions at once")
      ->capture_default_str()
      ->check(CLI::Range(1, 100000));
  serve->callback([&options, &run] {
    run = [&options] {
      options.serve.documents = options.documents;
      return Serve(options.serve);
    };
  });
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("sarvendo: load grid documents, answer requests, serve the demo page");
  app.require_subcommand(1);
  Options options;
  Handler run;
  AddResponseCommands(app, options, run);
  AddSaveCommand(app, options, run);
  AddServeCommand(app, options, run);
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForAllHelp& e) {
    return app.exit(e);
  } catch (const CLI::ParseError& e) {
    std::fprintf(stderr, "sarvendo: %s (see --help)\n", e.what());
    return 2;
  }
  try {
    return run();
  } catch (const std::exception& e) {
    std::fprintf(stderr, "sarvendo: %s\n", e.what());
    return 1;
  }
}
