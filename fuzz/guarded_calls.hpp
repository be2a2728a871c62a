// The calls of the library that pass through the harness: the link redirects them with --wrap.
// Outside of guarded() they go straight through.
#ifndef VESK_FUZZ_GUARDED_CALLS_HPP
#define VESK_FUZZ_GUARDED_CALLS_HPP

#include "harness.hpp"

// From now on calls are watched.
void begin_watching(const guard_rules &rules);

// Calls are not watched any more. What was allocated or opened meanwhile and is still there is a
// finding.
void end_watching();

// Calls are not watched any more, whatever was kept: a finding is about to be reported, and its
// input is stored outside of the scratch folder.
void stop_watching();

// Instead of end_watching(), where the guarded code was left in the middle: gives everything back.
void end_watching_after_abort();

#endif
