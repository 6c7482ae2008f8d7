#pragma once
// The one way Kestro runs work in parallel: a loop over independent parts on
// OpenCV's shared worker pool (cv::parallel_for_), so that no module starts
// or joins threads of its own.
//
// A part must not depend on which thread runs it or in which order the parts
// run; callers split their work so that every part writes its own output and
// the results are the same for any number of threads.

#include <functional>

namespace kestro {

// Threads the worker pool runs at once (at least 1).
int parallelThreadCount();

// Runs body(part) once for every part in [0, parts) and returns when all have
// finished. One part, or a pool that cannot start a thread, runs the parts on
// the calling thread. An exception thrown by a part is rethrown here after
// every other part has finished (the first one, when several throw).
void parallelFor(int parts, const std::function<void(int part)> &body);

// Test hook: while set, every launch on the pool fails after starting only
// the first half of the parts, as when no further thread can be started.
void setParallelLaunchFailsForTesting(bool fails);

} // namespace kestro
