#pragma once

#include "Arguments.h"
#include "Output.h"

/// Prints each signal of the service, and its leaving the bus and its return, until Ctrl-C or --timeout.
Outcome Monitor(const Arguments& arguments, Progress& progress);
