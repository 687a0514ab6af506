#pragma once

#include <QString>
#include <QToolBar>

class QAction;

// One button per pending event of a hidden widget, such as a chat message on a tab that is
// not showing; pressing the button brings the widget into view.
class EventToolBar : public QToolBar
{
    Q_OBJECT
public:
    explicit EventToolBar(QWidget* ip_parent = nullptr);
    ~EventToolBar() override;

    void AddEvent(QString const& i_text, QString const& i_icon, QWidget* ip_widget);
    void RemoveEvent(QWidget* ip_widget);
    // Events waiting for the user: the buttons, not counting the placeholder of an empty bar.
    int EventCount() const { return m_isEmpty ? 0 : static_cast<int>(actions().size()); }

signals:
    void EventCountChanged(int i_count);

private slots:
    void OnActionTriggered();
    void OnWidgetDestroyed(QObject* ip_object);

private:
    void RemoveEventOf(QObject* ip_object);

    bool m_isEmpty = true;
    QAction* mp_placeholder;
};

extern EventToolBar* eventToolBar;
