// BindingGuard: runs one call of a host binding so that nothing thrown inside
// (only allocation can throw) reaches the host; the failure result stands in.
#pragma once

template <class R, class F> R BindingGuard(R failure, F call) {
  try {
    return call();
  } catch (...) {
    return failure;
  }
}
