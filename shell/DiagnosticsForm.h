#pragma once

#include <QHash>
#include <QString>
#include <QStringList>
#include <QTimer>
#include <QWidget>
#include <memory>

#include "store/DataHandler.h"
#include "store/ItemPtr.h"

namespace Ui
{
class DiagnosticsForm;
}
class Item;
class QPlainTextEdit;

// The "Diagnostics" page: one tab of log lines per area, in the order the areas first logged,
// and the users whose status the client tracks, with their online state.
class DiagnosticsForm : public QWidget, public DataHandler
{
    Q_OBJECT
public:
    explicit DiagnosticsForm(QWidget* ip_parent = nullptr);
    ~DiagnosticsForm() override;

    // Needs the user types of the server link, which exist only later in start-up.
    void Init();

    void Log(QString const& i_area, int i_level, QString const& i_text, ItemPtr i_item = ItemPtr());

    void OnUserTracked(Item* ip_user);
    void OnUserUntracked(Item* ip_user);
    void OnUserOnline(Item* ip_user);
    void OnUserOffline(Item* ip_user);

public slots:
    // Shows the lines that wait for the flush timer at once.
    void FlushPendingLines();

private:
    QPlainTextEdit* AreaView(QString const& i_area);
    QString const& TimeStamp();
    void SetStatus(Item* ip_user, QString const& i_status);

    std::unique_ptr<Ui::DiagnosticsForm> mp_ui;
    // Lines wait here briefly, so that a burst costs one append and one layout per area
    // instead of one per line.
    QHash<QPlainTextEdit*, QStringList> m_pendingLines;
    QTimer m_flushTimer;
    qint64 m_stampSecond = -1;
    QString m_stamp;
};

extern DiagnosticsForm* diagnosticsForm;
