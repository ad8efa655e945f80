#include "Serve.h"

#include <httplib.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <map>
#include <memory>
#include <random>
#include <shared_mutex>
#include <sys/stat.h>

#include "Host.h"

namespace {

const char* const Cookie = "sarvendo";
const int IdleSeconds = 3600;
// Requests beyond this are refused before they reach the engine.
const size_t MaxRequest = 64u << 20;

std::string NewToken() {
  static std::mutex lock;
  static std::random_device seed;
  static std::mt19937_64 random(seed());
  std::lock_guard<std::mutex> hold(lock);
  char text[33];
  std::snprintf(text, sizeof text, "%016llx%016llx", static_cast<unsigned long long>(random()),
                static_cast<unsigned long long>(random()));
  return text;
}

bool IsFolder(const std::string& path) {
  struct stat info;
  return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

// The page: --web, else share/sarvendo/web beside an installed command, else
// the source tree's web folder.
std::string WebFolder(const std::string& chosen) {
  if (!chosen.empty()) return chosen;
  char exe[4096];
  ssize_t length = readlink("/proc/self/exe", exe, sizeof exe - 1);
  if (length > 0) {
    std::string path(exe, static_cast<size_t>(length));
    std::string installed = path.substr(0, path.rfind('/')) + "/../share/sarvendo/web";
    if (IsFolder(installed)) return installed;
  }
  return SARVENDO_WEB_DIR;
}

// The grids of the browser sessions. A request holds the table for reading
// while it uses its grid, so the reaper (holding it for writing) never
// deletes a grid in use.
class Sessions {
public:
  explicit Sessions(const ServeOptions& options) : options_(options) {}

  // Runs `work` with the index of the session's grid, making one when the
  // session is new (then `token` is set to the cookie to send back).
  template <class Work>
  void With(std::string& token, Work work) {
    {
      std::shared_lock<std::shared_mutex> read(table_);
      auto found = grids_.find(token);
      if (found != grids_.end()) {
        Touch(*found->second);
        work(found->second->grid.Index());
        return;
      }
    }
    Reap();
    std::unique_lock<std::shared_mutex> write(table_);
    if (static_cast<int>(grids_.size()) >= options_.maxSessions) throw Failure("too many sessions");
    token = NewToken();
    auto entry = std::make_unique<Entry>(options_.documents);
    Entry& made = *entry;
    Touch(made);  // before the table opens, so the reaper never takes it for idle
    grids_.emplace(token, std::move(entry));
    write.unlock();
    std::shared_lock<std::shared_mutex> read(table_);
    auto found = grids_.find(token);
    if (found == grids_.end()) throw Failure("the session ended");
    work(found->second->grid.Index());
  }

private:
  struct Entry {
    explicit Entry(const std::vector<std::string>& documents) : grid(documents) {}
    Grid grid;
    std::atomic<long long> used{0};
  };

  static long long Now() {
    return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
  }
  static void Touch(Entry& entry) { entry.used = Now(); }

  void Reap() {
    std::unique_lock<std::shared_mutex> write(table_);
    long long now = Now();
    for (auto it = grids_.begin(); it != grids_.end();) {
      it = now - it->second->used > IdleSeconds ? grids_.erase(it) : std::next(it);
    }
  }

  const ServeOptions& options_;
  std::shared_mutex table_;
  std::map<std::string, std::unique_ptr<Entry>> grids_;
};

std::string SessionToken(const httplib::Request& request) {
  std::string cookies = request.get_header_value("Cookie");
  std::string key = std::string(Cookie) + "=";
  for (size_t at = cookies.find(key); at != std::string::npos; at = cookies.find(key, at + 1)) {
    if (at == 0 || cookies[at - 1] == ' ' || cookies[at - 1] == ';') {
      size_t start = at + key.size();
      return cookies.substr(start, cookies.find(';', start) - start);
    }
  }
  return {};
}

// Answers a POST through the session's grid; `answer` fills the response.
template <class Answer>
void Handle(Sessions& sessions, const httplib::Request& request, httplib::Response& response, Answer answer) {
  std::string token = SessionToken(request);
  std::string old = token;
  try {
    sessions.With(token, [&](int index) { answer(index, request, response); });
  } catch (const Failure& failure) {
    response.status = 503;
    response.set_content(std::string(failure.what()) + "\n", "text/plain");
    return;
  }
  if (token != old) response.set_header("Set-Cookie", std::string(Cookie) + "=" + token + "; Path=/; SameSite=Strict; HttpOnly");
}

void SendText(httplib::Response& response, char* text, const char* type) {
  Text owned(text);
  if (!owned) {
    response.status = 400;
    response.set_content("the engine refused the request\n", "text/plain");
    return;
  }
  response.set_content(owned.get(), type);
}

// The export as a workbook: the engine writes files only, so it goes through
// a temporary file that is read back and removed.
void SendWorkbook(httplib::Response& response, int index, const std::string& request) {
  char name[] = "/tmp/sarvendo-workbook-XXXXXX";
  int file = mkstemp(name);
  if (file < 0) throw Failure("cannot make a temporary file");
  close(file);
  int result = SaveExportXlsxA(index, request.c_str(), name);
  std::string workbook = result == 0 ? ReadInput(name) : std::string();
  unlink(name);
  if (result == 0) {
    response.set_content(workbook, "application/vnd.openxmlformats-officedocument.spreadsheetml.sheet");
    response.set_header("Content-Disposition", "attachment; filename=\"grid.xlsx\"");
    return;
  }
  response.status = result == SARVENDO_UNAVAILABLE ? 501 : result == -3 ? 400 : 500;
  const char* why = result == SARVENDO_UNAVAILABLE    ? "the workbook export is not available in this build\n"
                    : result == SARVENDO_TOO_MANY_ROWS ? "the grid has more rows than a workbook sheet holds\n"
                    : result == -3                     ? "the engine refused the request\n"
                                                       : "the workbook could not be written\n";
  response.set_content(why, "text/plain");
}

void Route(httplib::Server& server, Sessions& sessions, const std::string& path,
           char* (*call)(int, const char*)) {
  server.Post(path, [&sessions, call](const httplib::Request& request, httplib::Response& response) {
    Handle(sessions, request, response, [call](int index, const httplib::Request& in, httplib::Response& out) {
      SendText(out, call(index, in.body.c_str()), "text/xml; charset=utf-8");
    });
  });
}

void AddRoutes(httplib::Server& server, Sessions& sessions) {
  Route(server, sessions, "/body", [](int index, const char* xml) { return GetBodyA(index, xml); });
  Route(server, sessions, "/page", [](int index, const char* xml) { return GetPageA(index, xml); });
  server.Post("/save", [&sessions](const httplib::Request& request, httplib::Response& response) {
    Handle(sessions, request, response, [](int index, const httplib::Request& in, httplib::Response& out) {
      int result = SaveA(index, in.body.c_str());
      if (result < 0) out.status = 400;
      out.set_content("<Grid><IO Result=\"" + std::to_string(result < 0 ? result : 0) + "\"/></Grid>",
                      "text/xml; charset=utf-8");
    });
  });
  // The cell query takes its arguments as form fields: row, col, flags, format.
  server.Post("/cells", [&sessions](const httplib::Request& request, httplib::Response& response) {
    Handle(sessions, request, response, [](int index, const httplib::Request& in, httplib::Response& out) {
      std::string flags = in.get_param_value("flags");
      std::string format = in.get_param_value("format");
      SendText(out,
               GetCellsA(index, in.get_param_value("row").c_str(), std::atoi(flags.c_str()),
                         in.get_param_value("col").c_str(), format.empty() ? nullptr : format.c_str()),
               "text/plain; charset=utf-8");
    });
  });
  server.Post("/export", [&sessions](const httplib::Request& request, httplib::Response& response) {
    Handle(sessions, request, response, [](int index, const httplib::Request& in, httplib::Response& out) {
      SendText(out, GetExportA(index, in.body.c_str()), "text/html; charset=utf-8");
      if (out.status < 400) out.set_header("Content-Disposition", "attachment; filename=\"grid.html\"");
    });
  });
  server.Post("/export-xlsx", [&sessions](const httplib::Request& request, httplib::Response& response) {
    Handle(sessions, request, response, [](int index, const httplib::Request& in, httplib::Response& out) {
      SendWorkbook(out, index, in.body);
    });
  });
}

// The layout without the rows (Cfg, defaults, columns, header), which the
// page reads to know the columns; the engine writes it to a file only.
std::string LayoutOf(const Grid& grid) {
  char name[] = "/tmp/sarvendo-layout-XXXXXX";
  int file = mkstemp(name);
  if (file < 0) throw Failure("cannot make a temporary file");
  close(file);
  int result = SaveToFileA(grid.Index(), name, 8 | 64);
  std::string layout = result == 0 ? ReadInput(name) : std::string();
  unlink(name);
  if (result != 0) throw Failure("the layout could not be written (code " + std::to_string(result) + ")");
  return layout;
}

}  // namespace

int Serve(const ServeOptions& options) {
  // A grid loaded up front tells a bad document before the server starts.
  std::string layout = LayoutOf(Grid(options.documents, true));
  std::string web = WebFolder(options.web);
  if (!IsFolder(web)) throw Failure("no page folder '" + web + "'");

  Sessions sessions(options);
  httplib::Server server;
  server.set_payload_max_length(MaxRequest);
  server.set_mount_point("/", web);
  AddRoutes(server, sessions);
  server.Get("/layout", [&layout](const httplib::Request&, httplib::Response& response) {
    response.set_content(layout, "text/xml; charset=utf-8");
  });

  int port = options.port;
  if (port == 0) {
    port = server.bind_to_any_port(options.host.c_str());
  } else if (!server.bind_to_port(options.host.c_str(), port)) {
    port = -1;
  }
  if (port < 0) throw Failure("cannot listen on " + options.host + ":" + std::to_string(options.port));
  // The first line tells where to go; tests read the port from it.
  std::printf("serving http://%s:%d/\n", options.host.c_str(), port);
  std::fflush(stdout);
  if (!server.listen_after_bind()) throw Failure("the server stopped");
  return 0;
}
