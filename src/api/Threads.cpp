#include "api/Threads.h"

TCrit::TCrit() { pthread_mutex_init(&Mutex, nullptr); }
TCrit::~TCrit() { pthread_mutex_destroy(&Mutex); }
void TCrit::Enter() { pthread_mutex_lock(&Mutex); }
void TCrit::Leave() { pthread_mutex_unlock(&Mutex); }

TRWCrit::TRWCrit() { pthread_rwlock_init(&Lock, nullptr); }
TRWCrit::~TRWCrit() { pthread_rwlock_destroy(&Lock); }
void TRWCrit::EnterRead() { pthread_rwlock_rdlock(&Lock); }
void TRWCrit::LeaveRead() { pthread_rwlock_unlock(&Lock); }
void TRWCrit::EnterWrite() { pthread_rwlock_wrlock(&Lock); }
void TRWCrit::LeaveWrite() { pthread_rwlock_unlock(&Lock); }
