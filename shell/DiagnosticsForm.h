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
    // Many lines carry a peer's words, and a peer may send as many as it likes: each page keeps
    // its newest lines only, so that the log's memory stays bounded however long the client
    // runs. A line costs about 700 bytes in the page's document, so a busy page holds about
    // 1.5 MB; 2,000 lines are still dozens of screens to scroll back through.
    static constexpr int s_maxLinesPerPage = 2000;

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
