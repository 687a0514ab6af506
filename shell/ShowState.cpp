#include "shell/ShowState.h"

bool g_showIsOver = false;
