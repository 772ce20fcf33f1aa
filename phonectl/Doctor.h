#pragma once

#include "Arguments.h"
#include "Output.h"

/// Goes through what a board must bring, in the order in which it is brought up, and says of each step whether it
/// holds and what to do next. Changes nothing and starts no service.
Outcome Examine(const Arguments& arguments, Progress& progress);
