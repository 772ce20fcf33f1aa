#pragma once

#include "Arguments.h"
#include "Output.h"

/// Prints what the service says as it comes, and when it leaves or returns, until Ctrl-C or --timeout.
Outcome Monitor(const Arguments& arguments, Progress& progress);
