#pragma once

#include "Log.h"

/// Logs a line of the audio daemon, with the place of the statement.
#define AUDIO_LOG(level, ...) LOG_FROM(Names::SoundManagerObject, level, __VA_ARGS__)
