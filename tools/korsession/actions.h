#pragma once

#include "options.h"

namespace korsession {

// What the program can be asked to do. Each returns its exit status; all throw korrun::Failure.
int start(const Options& options);
int list();
int stop(const Options& options);
int attach(const Options& options);

} // namespace korsession
