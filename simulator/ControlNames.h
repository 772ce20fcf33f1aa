#pragma once

/// Where the simulated device is steered on the session bus.
namespace ControlNames
{

constexpr char Service[] = "com.quillmark.kova.simulator";
constexpr char Object[] = "/com/quillmark/kova/simulator";

}
