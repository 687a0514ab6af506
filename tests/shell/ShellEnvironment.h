#pragma once

#include <gtest/gtest.h>

#include <QAction>
#include <QApplication>
#include <QLineEdit>
#include <QTabWidget>
#include <QToolBar>
#include <QVBoxLayout>
#include <ostream>

#include "store/Data.h"

// The shell's bars and the diagnostics page exist once per test process, on the global graph,
// because their types can be declared only once. The environment also declares the user types
// that the server link declares in the program, and tracks one user before Init.

inline QString S(char const* i_text) { return QString::fromUtf8(i_text); }

// Shows a top-level widget as the active window, so that focus changes are real.
void ShowActive(QWidget* ip_window);
// Gives a widget focus and lets the application report the change.
void FocusOn(QWidget* ip_widget);
// The texts of a tool bar's actions, in order; the empty placeholder shows as "".
QStringList BarTexts(QToolBar const* ip_bar);

void PrintTo(QStringList const& i_texts, std::ostream* op_stream);
