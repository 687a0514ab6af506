#pragma once

#include <functional>

// Spins the event loop until the condition holds or the time is up; true if it held.
bool WaitFor(std::function<bool()> const& i_condition, int i_timeoutMs = 5000);
