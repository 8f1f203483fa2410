#pragma once

#include "options.h"

namespace korsession {

// What the program can be asked to do. Each returns its exit status; all throw korrun::Failure.
int start(const Options& options);
int list();
int stop(const Options& options);
int attach(const Options& options);
int run(const Options& options); // returns only by throwing: it becomes the command

} // namespace korsession
