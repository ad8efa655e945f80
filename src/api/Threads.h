// TCrit and TRWCrit: a plain mutex and a plain reader-writer lock over
// pthreads. Default attributes, no error checks, no recursion: callers pair
// every Enter with one Leave on the same thread.
#pragma once
#include <pthread.h>

class TCrit {
public:
  TCrit();
  ~TCrit();
  TCrit(const TCrit&) = delete;
  TCrit& operator=(const TCrit&) = delete;
  void Enter();
  void Leave();

private:
  pthread_mutex_t Mutex;
};

class TRWCrit {
public:
  TRWCrit();
  ~TRWCrit();
  TRWCrit(const TRWCrit&) = delete;
  TRWCrit& operator=(const TRWCrit&) = delete;
  void EnterRead();
  void LeaveRead();
  void EnterWrite();
  void LeaveWrite();

private:
  pthread_rwlock_t Lock;
};

// The host's process-wide lock (EnterRead and the rest); the engine never
// takes it. Defined with the exported functions.
extern TRWCrit RWCrit;
