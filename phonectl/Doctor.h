#pragma once

#include "Arguments.h"
#include "Output.h"

/// Checks what a board needs for a call, in the order of bringing it up, and reports for each step whether it holds
/// and what to do next. Changes nothing and starts no service.
Outcome Examine(const Arguments& arguments, Progress& progress);
