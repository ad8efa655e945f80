/* A minimal host: loads a grid from files and prints the saved document,
 * then the answers to a body request (sorted by Name, ten root rows a page)
 * and to a request for the second page.
 *
 *   sarvendo_example                 the sample grid of examples/data
 *   sarvendo_example doc1 [doc2...]  up to six documents, loaded in this order
 *
 * The sample is found through this source file's path, compiled in by
 * __FILE__, or else in a data folder next to the executable, so the program
 * runs from any working directory. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "sarvendo.h"

/* Into PATH: the folder of FILE (ending in '/') followed by NAME; 0 if too long. */
static int Beside(char* path, size_t room, const char* file, const char* name) {
  const char* slash = strrchr(file, '/');
  size_t folder = slash ? (size_t)(slash - file) + 1 : 0;
  if (folder + strlen(name) + 1 > room) return 0;
  memcpy(path, file, folder);
  strcpy(path + folder, name);
  return 1;
}

/* Prints a heading and a response of the grid, which is then given back. */
static void PrintResponse(const char* heading, char* text) {
  printf("\n-- %s --\n%s\n", heading, text ? text : "(no response)");
  FreeStringA(text);
}

/* The sample's folder: next to this source, or next to the executable. */
static int FindSample(char* layout, char* data, size_t room) {
  char exe[4096];
  ssize_t length;
  if (Beside(layout, room, __FILE__, "data/layout.xml") && access(layout, R_OK) == 0) {
    return Beside(data, room, __FILE__, "data/data.xml");
  }
  length = readlink("/proc/self/exe", exe, sizeof exe - 1);
  if (length <= 0) return 0;
  exe[length] = 0;
  return Beside(layout, room, exe, "data/layout.xml") && access(layout, R_OK) == 0 &&
         Beside(data, room, exe, "data/data.xml");
}

int main(int argc, char** argv) {
  /* CreateGrid loads doc4, doc3, doc2, doc5, doc6, doc1; a later one overrides.
     Placing the arguments like this loads them in command-line order. */
  static const int slot[6] = {3, 2, 1, 4, 5, 0};
  const char* docs[6] = {NULL, NULL, NULL, NULL, NULL, NULL};
  char layout[4096], data[4096];
  char* text;
  int index, i;

  if (argc > 7) {
    fprintf(stderr, "usage: %s [document...] (at most six)\n", argv[0]);
    return 2;
  }
  if (argc > 1) {
    for (i = 1; i < argc; i++) docs[slot[i - 1]] = argv[i];
  } else {
    if (!FindSample(layout, data, sizeof layout)) {
      fprintf(stderr, "sample grid not found; name the documents on the command line\n");
      return 2;
    }
    docs[slot[0]] = layout;
    docs[slot[1]] = data;
  }

  index = CreateGridA(docs[0], docs[1], docs[2], docs[3], docs[4], docs[5]);
  if (index < 0) {
    fprintf(stderr, "CreateGrid failed with %d\n", index);
    return 1;
  }
  text = GetDataA(index);
  if (!text) {
    fprintf(stderr, "GetData gave nothing\n");
    DeleteGrid(index);
    return 1;
  }
  puts(text);
  FreeStringA(text);
  PrintResponse("body sorted by Name", GetBodyA(index, "<Grid><Cfg Sort=\"Name\" Sorting=\"1\" PageLength=\"10\"/></Grid>"));
  PrintResponse("page 1", GetPageA(index, "<Grid><Body><B Pos=\"1\"/></Body></Grid>"));
  DeleteGrid(index);
  return 0;
}
