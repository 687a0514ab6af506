#include "shell/EventToolBar.h"

#include <QAction>
#include <QIcon>

#include "shell/FocusWidget.h"
#include "shell/ShowState.h"
#include "store/Data.h"

EventToolBar* eventToolBar = nullptr;

namespace
{
// Widgets are keyed by their QObject address, so that destroyed() can still find the item
// once the widget part of the object is gone.
ItemPtr FindWidgetItem(QObject const* ip_object)
{
    return d.GetType("event_toolbar_widget")->HasItem(Value(ip_object));
}
} // namespace

EventToolBar::EventToolBar(QWidget* ip_parent) : QToolBar(ip_parent), mp_placeholder(new QAction(this))
{
    eventToolBar = this;
    setObjectName(QStringLiteral("eventToolBar"));
    setMovable(false);
    setIconSize(QSize(16, 16));
    setToolButtonStyle(Qt::ToolButtonTextBesideIcon);

    Type* lp_action = d.NewType("event_toolbar_action", true, false, true);
    Type* lp_widget = d.NewType("event_toolbar_widget", true, false, true);
    lp_action->RelateToType(lp_widget, One, One, false);

    addAction(mp_placeholder);
}

EventToolBar::~EventToolBar()
{
    if (eventToolBar == this)
        eventToolBar = nullptr;
}

void EventToolBar::AddEvent(QString const& i_text, QString const& i_icon, QWidget* ip_widget)
{
    if (g_showIsOver || !ip_widget || ip_widget->isVisible() || FindWidgetItem(ip_widget))
        return;
    if (m_isEmpty)
    {
        clear();
        m_isEmpty = false;
    }
    auto* lp_action = new QAction(QIcon(i_icon), i_text, this);
    // The text is a caller's, often a name, and shows as typed rather than with a mnemonic.
    lp_action->setIconText(QString(i_text).replace(u'&', QStringLiteral("&&")));
    lp_action->setToolTip(i_text);
    addAction(lp_action);
    connect(lp_action, &QAction::triggered, this, &EventToolBar::OnActionTriggered);
    d.GetType("event_toolbar_widget")->GetItem(Value(static_cast<QObject*>(ip_widget)))
        ->Connect(d.GetType("event_toolbar_action")->GetItem(Value(static_cast<QObject*>(lp_action))));
    connect(ip_widget, &QObject::destroyed, this, &EventToolBar::OnWidgetDestroyed, Qt::UniqueConnection);
    emit EventCountChanged(EventCount());
}

void EventToolBar::RemoveEvent(QWidget* ip_widget)
{
    RemoveEventOf(ip_widget);
}

void EventToolBar::RemoveEventOf(QObject* ip_object)
{
    ItemPtr const l_widget = FindWidgetItem(ip_object);
    if (!l_widget)
        return;
    ItemPtr const l_action = l_widget["event_toolbar_action"];
    if (auto* lp_action = static_cast<QAction*>(l_action.AsPointer<QObject>()))
    {
        removeAction(lp_action);
        // Later, because the action may be the one emitting right now.
        lp_action->deleteLater();
    }
    if (actions().isEmpty())
    {
        addAction(mp_placeholder);
        m_isEmpty = true;
    }
    if (l_action)
        l_action.Remove();
    l_widget.Remove();
    emit EventCountChanged(EventCount());
}

void EventToolBar::OnActionTriggered()
{
    if (g_showIsOver)
        return;
    ItemPtr const l_action = d.GetType("event_toolbar_action")->HasItem(Value(sender()));
    auto* lp_widget = qobject_cast<QWidget*>(l_action["event_toolbar_widget"].AsPointer<QObject>());
    if (!lp_widget)
        return;
    RemoveEvent(lp_widget);
    lp_widget->window()->activateWindow();
    FocusWidget(lp_widget);
}

void EventToolBar::OnWidgetDestroyed(QObject* ip_object)
{
    if (g_showIsOver)
        return;
    RemoveEventOf(ip_object);
}
