#pragma once

/// The names under which the simulated device is controlled on the session bus.
namespace ControlNames
{

constexpr char Service[] = "com.quillmark.kova.simulator";
constexpr char Object[] = "/com/quillmark/kova/simulator";

}
