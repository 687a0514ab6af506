#pragma once

class QWidget;

// Bring a widget into view, selecting the tabs that hold it, and give it focus.
void FocusWidget(QWidget* ip_widget);
void FocusWidgetAndParents(QWidget* ip_widget);
