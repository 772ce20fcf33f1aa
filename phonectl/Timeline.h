#pragma once

#include "Arguments.h"
#include "Output.h"

/// Draws what the service's log says has happened, as one picture (SVG) or page (HTML).
Outcome DrawTimeline(const Arguments& arguments, Progress& progress);
