#pragma once

#include "Arguments.h"
#include "Output.h"
#include "PhoneClient.h"

// The phone's state, and the commands that switch its power.

Outcome ShowStatus(const Arguments& arguments, Progress& progress);
Outcome SwitchOn(const Arguments& arguments, Progress& progress);
Outcome SwitchOff(const Arguments& arguments, Progress& progress);
Outcome ForceOff(const Arguments& arguments, Progress& progress);
