#include "shell/FocusWidget.h"

#include <QStackedWidget>
#include <QTabWidget>
#include <QWidget>

void FocusWidget(QWidget* ip_widget)
{
    if (!ip_widget)
        return;
    // Walk up: wherever a tab widget's page stack holds the widget's branch, make that page current.
    QWidget* lp_child = ip_widget;
    for (QWidget* lp_parent = ip_widget->parentWidget(); lp_parent; lp_parent = lp_parent->parentWidget())
    {
        if (auto* lp_stack = qobject_cast<QStackedWidget*>(lp_parent))
        {
            if (auto* lp_tabs = qobject_cast<QTabWidget*>(lp_stack->parentWidget()))
                lp_tabs->setCurrentWidget(lp_child);
            else
                lp_stack->setCurrentWidget(lp_child);
        }
        lp_child = lp_parent;
    }
    // Raised alone, the window could stay behind the active one, without keyboard focus.
    ip_widget->window()->raise();
    ip_widget->window()->activateWindow();
    ip_widget->setFocus(Qt::OtherFocusReason);
}

void FocusWidgetAndParents(QWidget* ip_widget)
{
    FocusWidget(ip_widget);
}
