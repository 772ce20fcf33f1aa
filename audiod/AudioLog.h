#pragma once

#include "Log.h"

/// Logs one line of the audio daemon at the place where it stands.
#define AUDIO_LOG(level, ...) LOG_FROM(Names::SoundManagerObject, level, __VA_ARGS__)
