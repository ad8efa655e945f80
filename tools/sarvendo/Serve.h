// The demo host: an HTTP server that hands the browser's requests to the
// engine and serves the page of the web folder.
//
// Each browser session (a cookie) gets a grid of its own, loaded from the
// documents on its first request, so that sorting, filtering and saving in one
// browser never change what another sees. Sessions unused for an hour are
// deleted; beyond `maxSessions` live ones a new browser is refused (503).
#pragma once
#include <string>
#include <vector>

struct ServeOptions {
  std::vector<std::string> documents;
  std::string host = "127.0.0.1";
  int port = 8080;
  std::string web;  // empty: found beside the command or in the sources
  int maxSessions = 64;
};

// Runs until the process is stopped; returns an exit code if it can't start.
int Serve(const ServeOptions& options);
