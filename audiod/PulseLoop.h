#pragma once

#include <pulse/mainloop-api.h>

/// Makes libpulse run on Qt's event loop in the calling thread, with any of Qt's dispatchers. It never blocks and
/// causes no wake-ups while nothing happens.
/// @return a table that lives as long as the process.
pa_mainloop_api* PulseLoop();
