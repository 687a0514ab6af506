#pragma once

// Set when the main window starts to go away: from then on nothing may touch its widgets.
extern bool g_showIsOver;
