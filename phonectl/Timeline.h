#pragma once

#include "Arguments.h"
#include "Output.h"

/// Draws the service's log as one picture (SVG) or page (HTML).
Outcome DrawTimeline(const Arguments& arguments, Progress& progress);
