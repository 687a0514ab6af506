#pragma once

// What the tests of the assembled window use.
#include <gtest/gtest.h>

#include <QtTest>
#include <QtWidgets>

#include "server/Server.h"
#include "shell/MainWindow.h"
#include "shell/TimerManager.h"
#include "store/Settings.h"
#include "support/AppEnvironment.h"
#include "ui_MainWindow.h"
