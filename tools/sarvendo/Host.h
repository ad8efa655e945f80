// The command's side of the engine: a grid loaded from documents, the texts
// it returns, and the files the command reads. Only the C interface of
// sarvendo.h is used, as any host would. A failure is thrown as Failure with a
// one-line message; main turns it into that line on stderr and an exit code.
#pragma once
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "sarvendo.h"

struct Failure : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// A text result of the engine, given back with FreeStringA.
struct TextDeleter {
  void operator()(char* text) const { FreeStringA(text); }
};
using Text = std::unique_ptr<char, TextDeleter>;

// Reads a whole file, or standard input for "-".
std::string ReadInput(const std::string& name);

// True when the argument is the document's text rather than a file name:
// the engine takes text that starts with "<" or "&" after blanks.
bool IsDocumentText(const std::string& document);

// A grid of the engine, deleted with the object. The documents are file
// names or XML texts, at most six, loaded in the given order.
class Grid {
public:
  static const size_t MaxDocuments = 6;

  // Shows progress on stderr when `progress` is set and loading takes long.
  explicit Grid(const std::vector<std::string>& documents, bool progress = false);
  ~Grid();
  Grid(const Grid&) = delete;
  Grid& operator=(const Grid&) = delete;

  int Index() const { return index_; }

private:
  int index_;
};

// Checks the documents before loading: count and readable files.
void CheckDocuments(const std::vector<std::string>& documents);

// The message for a failed CreateGrid, naming the document at fault.
std::string LoadFailure(const std::vector<std::string>& documents, int code);
