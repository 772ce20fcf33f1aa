#pragma once

#include <pulse/mainloop-api.h>

/// The main loop that libpulse runs on: Qt's event loop of the calling thread, with any of Qt's dispatchers. It never
/// blocks, and does not wake up while nothing happens.
/// @return a table that lives as long as the process.
pa_mainloop_api* PulseLoop();
