#pragma once

#include <QTabWidget>

// The tab widget of the Rooms and Chat pages: one tab per room or person.
class RoomTabWidget : public QTabWidget
{
    Q_OBJECT
public:
    using QTabWidget::QTabWidget;
};
