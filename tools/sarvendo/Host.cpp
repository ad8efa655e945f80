#include "Host.h"

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <mutex>
#include <sstream>
#include <sys/stat.h>
#include <thread>

namespace {

// CreateGrid loads doc4, doc3, doc2, doc5, doc6, doc1; a later one overrides.
// Placing the documents in these slots loads them in the given order.
const int LoadSlot[Grid::MaxDocuments] = {3, 2, 1, 4, 5, 0};

int Create(const std::vector<std::string>& documents) {
  const char* slots[Grid::MaxDocuments] = {};
  for (size_t i = 0; i < documents.size(); i++) slots[LoadSlot[i]] = documents[i].c_str();
  return CreateGridA(slots[0], slots[1], slots[2], slots[3], slots[4], slots[5]);
}

std::string Describe(const std::string& document) {
  if (!IsDocumentText(document)) return "'" + document + "'";
  return "the document given as text";
}

// Prints the time spent loading on stderr, from one second on, until stopped.
class Progress {
public:
  explicit Progress(bool on) {
    if (on) worker_ = std::thread([this] { Run(); });
  }
  ~Progress() {
    if (!worker_.joinable()) return;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      done_ = true;
    }
    wake_.notify_one();
    worker_.join();
    if (shown_) std::fputs("\r\033[K", stderr);
  }

private:
  void Run() {
    auto start = std::chrono::steady_clock::now();
    std::unique_lock<std::mutex> lock(mutex_);
    if (wake_.wait_for(lock, std::chrono::seconds(1), [this] { return done_; })) return;
    do {
      double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
      std::fprintf(stderr, "\rloading... %.1f s", seconds);
      std::fflush(stderr);
      shown_ = true;
    } while (!wake_.wait_for(lock, std::chrono::milliseconds(250), [this] { return done_; }));
  }

  std::thread worker_;
  std::mutex mutex_;
  std::condition_variable wake_;
  bool done_ = false;
  bool shown_ = false;
};

}  // namespace

std::string ReadInput(const std::string& name) {
  if (name == "-") {
    return std::string(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
  }
  struct stat info;
  if (stat(name.c_str(), &info) != 0) throw Failure("cannot read '" + name + "': " + std::strerror(errno));
  if (S_ISDIR(info.st_mode)) throw Failure("cannot read '" + name + "': it is a directory");
  std::ifstream in(name, std::ios::binary);
  if (!in) throw Failure("cannot read '" + name + "': " + std::strerror(errno));
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

bool IsDocumentText(const std::string& document) {
  size_t i = 0;
  while (i < document.size() && static_cast<unsigned char>(document[i]) <= 32 && document[i] != 0) i++;
  return i < document.size() && (document[i] == '<' || document[i] == '&');
}

void CheckDocuments(const std::vector<std::string>& documents) {
  if (documents.empty()) throw Failure("no document given");
  if (documents.size() > Grid::MaxDocuments) throw Failure("at most six documents can be loaded");
  for (const std::string& document : documents) {
    if (IsDocumentText(document)) continue;
    struct stat info;
    if (stat(document.c_str(), &info) != 0) throw Failure("cannot read '" + document + "': " + std::strerror(errno));
    if (S_ISDIR(info.st_mode)) throw Failure("cannot read '" + document + "': it is a directory");
    if (access(document.c_str(), R_OK) != 0) throw Failure("cannot read '" + document + "': " + std::strerror(errno));
  }
}

std::string LoadFailure(const std::vector<std::string>& documents, int code) {
  // The engine tells only a code; loading each document alone finds the one at fault.
  for (const std::string& document : documents) {
    int index = Create({document});
    if (index >= 0) {
      DeleteGrid(index);
      continue;
    }
    if (index == -3) return Describe(document) + " is not well-formed XML";
    if (index == -2) return Describe(document) + " is empty";
    if (index == -1 && IsDocumentText(document)) return Describe(document) + " has no root element";
    if (index == -1) return "cannot open '" + document + "'";
  }
  if (code == -1) return "the documents have no root element";
  return "the documents could not be loaded (code " + std::to_string(code) + ")";
}

Grid::Grid(const std::vector<std::string>& documents, bool progress) {
  CheckDocuments(documents);
  {
    Progress shown(progress && isatty(STDERR_FILENO));
    index_ = Create(documents);
  }
  if (index_ < 0) throw Failure(LoadFailure(documents, index_));
}

Grid::~Grid() { DeleteGrid(index_); }
