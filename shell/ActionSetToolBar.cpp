#include "shell/ActionSetToolBar.h"

#include <QAction>
#include <QIcon>
#include <QTabBar>
#include <QTabWidget>
#include <QTreeWidget>
#include <QTreeWidgetItemIterator>

#include "shell/ShowState.h"
#include "store/Data.h"
#include "store/Require.h"

ActionSetToolBar* actionBar = nullptr;

namespace
{
// The item of a type for a value, made on first use.
ItemPtr KeyItem(char const* i_typeName, Value const& i_value)
{
    return d.GetType(i_typeName)->GetItem(i_value);
}

// Widgets are keyed by their QObject address, so that an item can still be found from the
// pointer that destroyed() passes once the widget part is gone.
Value WidgetValue(QObject const* ip_object)
{
    return Value(ip_object);
}

ItemPtr FindWidgetItem(QObject const* ip_object)
{
    return d.GetType("toolbar_action_widget")->HasItem(WidgetValue(ip_object));
}

void ShowDisabled(QAction* ip_action, QString const& i_reason)
{
    ip_action->setEnabled(false);
    ip_action->setToolTip(i_reason);
}

QTreeWidgetItem* FirstSelectedRow(QTreeWidget* ip_tree)
{
    QTreeWidgetItemIterator l_it(ip_tree, QTreeWidgetItemIterator::Selected);
    return *l_it;
}
} // namespace

ActionSetToolBar::ActionSetToolBar(QWidget* ip_parent) : QToolBar(ip_parent), mp_placeholder(new QAction(this))
{
    actionBar = this;
    setObjectName(QStringLiteral("actionBar"));
    setMovable(false);
    setToolButtonStyle(Qt::ToolButtonTextBesideIcon);

    Type* lp_set = d.NewType("toolbar_action_set", true, false, true);
    Type* lp_action = d.NewType("toolbar_action", true, true, true);
    Type* lp_id = d.NewType("toolbar_action_id", true, false, true);
    Type* lp_order = d.NewType("toolbar_action_order", false, false, true);
    Type* lp_icon = d.NewType("toolbar_action_icon", false, false, true);
    Type* lp_text = d.NewType("toolbar_action_text", false, false, true);
    Type* lp_needsSelection = d.NewType("needs_list_selection", false, true, true);
    Type* lp_widget = d.NewType("toolbar_action_widget", true, false, true);
    Type* lp_valuePair = d.NewType("action_key_value_pair", true, true, true);
    Type* lp_key = d.NewType("action_key", false, false, true);
    Type* lp_value = d.NewType("action_value", false, false, true);
    Type* lp_columnPair = d.NewType("action_key_column_pair", true, true, true);
    Type* lp_column = d.NewType("action_column", false, false, true);
    Type* lp_activeKey = d.NewType("active_action_key", true, false, true);
    Type* lp_activeValue = d.NewType("active_action_value", false, false, true);
    Type* lp_widgetText = d.NewType("widget_action_text", false, false, true);
    Type* lp_object = d.NewType("toolbar_action_object", false, false, true);
    Type* lp_disabled = d.NewType("toolbar_action_disabled", false, false, true);

    lp_set->RelateToType(lp_action, One, Many, false);
    for (Type* lp_attribute : {lp_id, lp_order, lp_icon, lp_text, lp_needsSelection, lp_disabled})
        lp_action->RelateToType(lp_attribute, Many, One, false);
    lp_set->RelateToType(lp_widget, One, Many, false);
    for (Type* lp_attribute : {lp_key, lp_value, lp_widget})
        lp_valuePair->RelateToType(lp_attribute, Many, One, false);
    for (Type* lp_attribute : {lp_key, lp_column, lp_widget})
        lp_columnPair->RelateToType(lp_attribute, Many, One, false);
    lp_activeKey->RelateToType(lp_activeValue, Many, One, false);
    lp_widgetText->RelateToType(lp_id, Many, Many, false);
    lp_widgetText->RelateToType(lp_widget, Many, Many, false);
    lp_object->RelateToType(lp_action, One, One, false);

    Clear();
}

ActionSetToolBar::~ActionSetToolBar()
{
    if (actionBar == this)
        actionBar = nullptr;
}

void ActionSetToolBar::AddSetAction(std::string const& i_set, std::string const& i_id, std::string const& i_text,
                                    std::string const& i_icon, bool i_needsSelection)
{
    ItemPtr const l_action = d.GetType("toolbar_action")->NewItem();
    KeyItem("toolbar_action_set", i_set) += l_action;
    l_action += KeyItem("toolbar_action_id", i_id);
    l_action += KeyItem("toolbar_action_order", std::to_string(m_nextOrder++));
    l_action += KeyItem("toolbar_action_icon", i_icon);
    l_action += KeyItem("toolbar_action_text", i_text);
    if (i_needsSelection)
        l_action.NewItem("needs_list_selection");
}

void ActionSetToolBar::RegisterWidget(QWidget* ip_widget, QString const& i_set)
{
    ItemPtr const l_widget = KeyItem("toolbar_action_widget", WidgetValue(ip_widget));
    KeyItem("toolbar_action_set", i_set.toStdString()) += l_widget;
    connect(ip_widget, &QObject::destroyed, this, &ActionSetToolBar::OnRegisteredWidgetDestroyed,
            Qt::UniqueConnection);
}

ItemPtr ActionSetToolBar::WidgetItem(QWidget* ip_widget, char const* i_call) const
{
    ItemPtr const l_widget = FindWidgetItem(ip_widget);
    TW_REQUIRE(l_widget, i_call, "the widget is not registered");
    return l_widget;
}

void ActionSetToolBar::AddWidgetKey(QWidget* ip_widget, QString const& i_key, QString const& i_value)
{
    SetWidgetKeyPair(WidgetItem(ip_widget, "AddWidgetKey"), i_key, "action_key_value_pair",
                     KeyItem("action_value", i_value.toStdString()));
}

void ActionSetToolBar::AddWidgetColumnKey(QWidget* ip_widget, QString const& i_key, int i_column)
{
    SetWidgetKeyPair(WidgetItem(ip_widget, "AddWidgetColumnKey"), i_key, "action_key_column_pair",
                     KeyItem("action_column", i_column));
}

void ActionSetToolBar::SetWidgetKeyPair(ItemPtr i_widget, QString const& i_key, char const* i_pairType,
                                        ItemPtr i_value)
{
    ItemPtr const l_key = KeyItem("action_key", i_key.toStdString());
    // A second call for the same key replaces the value rather than adding a rival pair.
    ItemPtr l_pair = d.GetItem(i_widget, l_key, i_pairType);
    if (!l_pair)
    {
        l_pair = d.GetType(i_pairType)->NewItem();
        l_pair += l_key;
        l_pair += i_widget;
    }
    l_pair += i_value;
}

void ActionSetToolBar::SetWidgetActionText(QWidget* ip_widget, QString const& i_id, QString const& i_text)
{
    ItemPtr const l_widget = WidgetItem(ip_widget, "SetWidgetActionText");
    ItemPtr const l_id = d.GetType("toolbar_action_id")->HasItem(i_id.toStdString());
    TW_REQUIRE(l_id, "SetWidgetActionText: no such action id", i_id.toUtf8().constData());

    // One text item is shared by every widget that shows the same text for the same action,
    // so the old text is let go from this widget only; the others keep theirs.
    for (Item* lp_old : d.GetItems(l_widget, l_id, "widget_action_text"))
        ItemPtr(lp_old).Disconnect(l_widget);
    ItemPtr const l_text = KeyItem("widget_action_text", i_text.toStdString());
    l_text += l_widget;
    l_text += l_id;

    if (ip_widget != m_currentWidget)
        return;
    for (QAction* lp_action : ShownActions(l_id))
        lp_action->setText(i_text);
}

void ActionSetToolBar::DisableAction(std::string const& i_id, QString const& i_reason)
{
    ItemPtr const l_id = d.GetType("toolbar_action_id")->HasItem(i_id);
    TW_REQUIRE(l_id, "DisableAction: no such action id", i_id.c_str());
    ItemPtr const l_reason = KeyItem("toolbar_action_disabled", i_reason.toStdString());
    for (Item* lp_action : l_id.GetItems("toolbar_action"))
        ItemPtr(lp_action) += l_reason;
    for (QAction* lp_action : ShownActions(l_id))
        ShowDisabled(lp_action, i_reason);
}

std::vector<QAction*> ActionSetToolBar::ShownActions(ItemPtr i_id)
{
    std::vector<QAction*> l_actions;
    for (Item* lp_object : g("toolbar_action_object"))
    {
        ItemPtr const l_object(lp_object);
        if (l_object["toolbar_action"]["toolbar_action_id"].Get() == i_id.Get())
            l_actions.push_back(l_object.AsPointer<QAction>());
    }
    return l_actions;
}

QString ActionSetToolBar::GetKey(QString const& i_key) const
{
    ItemPtr const l_key = d.GetType("active_action_key")->HasItem(i_key.toStdString());
    return QString::fromStdString(l_key["active_action_value"].AsString());
}

void ActionSetToolBar::AutoFocusTabWidget(QTabWidget* ip_tabWidget)
{
    connect(ip_tabWidget, &QTabWidget::currentChanged, this, [ip_tabWidget](int) {
        if (g_showIsOver)
            return;
        if (QWidget* lp_page = ip_tabWidget->currentWidget())
            lp_page->setFocus(Qt::OtherFocusReason);
    });
}

void ActionSetToolBar::OnApplicationFocusChanged(QWidget*, QWidget* ip_widget)
{
    if (g_showIsOver)
        return;

    // A tab widget or its bar stands for the page it shows.
    QWidget* lp_widget = ip_widget;
    while (lp_widget)
    {
        auto* lp_tabs = qobject_cast<QTabWidget*>(lp_widget);
        if (!lp_tabs && qobject_cast<QTabBar*>(lp_widget))
            lp_tabs = qobject_cast<QTabWidget*>(lp_widget->parentWidget());
        if (!lp_tabs)
            break;
        lp_widget = lp_tabs->currentWidget();
    }

    m_currentTree = nullptr;
    if (!lp_widget)
    {
        Clear();
        return;
    }

    // The tree nearest the focus gives the selection, even below the registered widget.
    ItemPtr l_widgetItem;
    for (; lp_widget; lp_widget = lp_widget->parentWidget())
    {
        if (!m_currentTree)
            m_currentTree = qobject_cast<QTreeWidget*>(lp_widget);
        l_widgetItem = FindWidgetItem(lp_widget);
        if (l_widgetItem)
            break;
    }
    if (!l_widgetItem)
    {
        Clear();
        return;
    }

    m_currentWidgetItem = l_widgetItem;
    ChangeSet(lp_widget, QString::fromStdString(l_widgetItem["toolbar_action_set"].AsString()));

    for (Item* lp_pair : l_widgetItem.GetItems("action_key_value_pair"))
    {
        ItemPtr const l_pair(lp_pair);
        KeyItem("active_action_key", l_pair["action_key"].AsString()) +=
            KeyItem("active_action_value", l_pair["action_value"].AsString());
    }
}

void ActionSetToolBar::ChangeSet(QWidget* ip_widget, QString const& i_set)
{
    m_currentWidget = ip_widget;
    m_currentSet = i_set;
    RemoveSetActions();

    ItemPtr const l_set = d.GetType("toolbar_action_set")->HasItem(i_set.toStdString());
    ItemPtr const l_widgetItem = FindWidgetItem(ip_widget);
    for (Item* lp_action : l_set.GetItems("toolbar_action").SortNumericBy("toolbar_action_order", true))
    {
        ItemPtr const l_action(lp_action);
        std::string l_text = l_action["toolbar_action_text"].AsString();
        if (l_widgetItem)
        {
            ItemSet const l_override = d.GetItems(l_widgetItem, l_action["toolbar_action_id"], "widget_action_text");
            if (!l_override.empty())
                l_text = (*l_override.begin())->AsString();
        }
        auto* lp_qaction = new QAction(QIcon(QString::fromStdString(l_action["toolbar_action_icon"].AsString())),
                                       QString::fromStdString(l_text), this);
        if (ItemPtr const l_disabled = l_action["toolbar_action_disabled"])
            ShowDisabled(lp_qaction, QString::fromStdString(l_disabled.AsString()));
        addAction(lp_qaction);
        connect(lp_qaction, &QAction::triggered, this, &ActionSetToolBar::OnActionTriggered);
        KeyItem("toolbar_action_object", Value(lp_qaction)) += l_action;
        m_setActions.emplace_back(lp_qaction);
    }
    // A set without actions still keeps the bar's height.
    if (m_setActions.empty())
        addAction(mp_placeholder);
}

void ActionSetToolBar::Clear()
{
    m_currentSet.clear();
    m_currentWidget = nullptr;
    m_currentWidgetItem = ItemPtr();
    m_currentTree = nullptr;
    RemoveSetActions();
    addAction(mp_placeholder);
}

void ActionSetToolBar::RemoveSetActions()
{
    clear();
    // Later, because the bar may be rebuilt while one of these actions is still emitting.
    for (QPointer<QAction> const& l_action : m_setActions)
        if (l_action)
            l_action->deleteLater();
    m_setActions.clear();
    g("toolbar_action_object").Remove();
}

void ActionSetToolBar::OnActionTriggered(bool)
{
    auto* lp_qaction = qobject_cast<QAction*>(sender());
    if (!lp_qaction)
        return;
    ItemPtr const l_action =
        d.GetType("toolbar_action_object")->HasItem(Value(lp_qaction))["toolbar_action"];
    if (!l_action)
        return;

    if (m_currentTree)
    {
        QTreeWidgetItem* lp_row = FirstSelectedRow(m_currentTree);
        if (!lp_row && l_action.IsConnected("needs_list_selection"))
            return;
        if (lp_row)
        {
            for (Item* lp_pair : m_currentWidgetItem.GetItems("action_key_column_pair"))
            {
                ItemPtr const l_pair(lp_pair);
                QString const l_text = lp_row->text(l_pair["action_column"].AsInt());
                KeyItem("active_action_key", l_pair["action_key"].AsString()) +=
                    KeyItem("active_action_value", l_text.toStdString());
            }
        }
    }
    emit ActionTriggered(l_action["toolbar_action_id"].AsString());
}

void ActionSetToolBar::OnRegisteredWidgetDestroyed(QObject* ip_object)
{
    if (g_showIsOver)
        return;
    ItemPtr const l_widget = FindWidgetItem(ip_object);
    if (!l_widget)
        return;
    // A later widget may be born at the same address; it must not inherit this one's set.
    if (l_widget.Get() == m_currentWidgetItem.Get())
        Clear();
    l_widget.GetItems("action_key_value_pair").Remove();
    l_widget.GetItems("action_key_column_pair").Remove();
    l_widget.Remove();
}
