#pragma once

#include <QPointer>
#include <QString>
#include <QToolBar>
#include <cstdint>
#include <string>
#include <vector>

#include "store/ItemPtr.h"

class QAction;
class QTabWidget;
class QTreeWidget;

// The tool bar that shows the actions of the widget holding keyboard focus. Forms declare sets
// of actions, register widgets against a set and name the keys an action needs; a press emits
// only the action's id, and the listener reads the keys back with GetKey.
class ActionSetToolBar : public QToolBar
{
    Q_OBJECT
public:
    explicit ActionSetToolBar(QWidget* ip_parent = nullptr);
    ~ActionSetToolBar() override;

    void AddSetAction(std::string const& i_set, std::string const& i_id, std::string const& i_text,
                      std::string const& i_icon, bool i_needsSelection);
    void RegisterWidget(QWidget* ip_widget, QString const& i_set);
    void AddWidgetKey(QWidget* ip_widget, QString const& i_key, QString const& i_value);
    void AddWidgetColumnKey(QWidget* ip_widget, QString const& i_key, int i_column);
    void SetWidgetActionText(QWidget* ip_widget, QString const& i_id, QString const& i_text);
    // Shows the action greyed out wherever it appears, with the reason as its tooltip.
    void DisableAction(std::string const& i_id, QString const& i_reason);
    QString GetKey(QString const& i_key) const;
    void AutoFocusTabWidget(QTabWidget* ip_tabWidget);

    void ChangeSet(QWidget* ip_widget, QString const& i_set);
    void Clear();

signals:
    void ActionTriggered(std::string i_action);

public slots:
    void OnApplicationFocusChanged(QWidget* ip_oldWidget, QWidget* ip_widget);

private slots:
    void OnActionTriggered(bool i_checked);
    void OnRegisteredWidgetDestroyed(QObject* ip_object);

private:
    ItemPtr WidgetItem(QWidget* ip_widget, char const* i_call) const;
    static std::vector<QAction*> ShownActions(ItemPtr i_id);
    void RemoveSetActions();
    void SetWidgetKeyPair(ItemPtr i_widget, QString const& i_key, char const* i_pairType, ItemPtr i_value);

    QString m_currentSet;
    ItemPtr m_currentWidgetItem;
    QPointer<QTreeWidget> m_currentTree;
    QPointer<QWidget> m_currentWidget;
    std::uint64_t m_nextOrder = 0;
    QAction* mp_placeholder;
    std::vector<QPointer<QAction>> m_setActions;
};

extern ActionSetToolBar* actionBar;
