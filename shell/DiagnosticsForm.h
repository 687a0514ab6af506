#pragma once

#include <QHash>
#include <QString>
#include <QStringList>
#include <QTimer>
#include <QWidget>
#include <memory>
#include <vector>

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
    // Many lines carry a peer's words, and a peer may send as many as it likes: the log keeps
    // the newest lines only, so that its memory stays bounded however long the client runs. A
    // line costs about 500 bytes in its page's document, so the whole log holds about 2.5 MB.
    // Lines over the total are taken from the page with the most, so that a busy area cannot
    // push a quiet one's few lines out, and no page holds more than its own bound.
    static constexpr int s_maxLinesInAll = 5000;
    static constexpr int s_maxLinesPerPage = 4000;

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
    // Drops the oldest lines of the fullest pages until all pages hold no more than the total.
    void KeepWithinTotal();

    std::unique_ptr<Ui::DiagnosticsForm> mp_ui;
    // Lines wait here briefly, so that a burst costs one append and one layout per area
    // instead of one per line.
    QHash<QPlainTextEdit*, QStringList> m_pendingLines;
    std::vector<QPlainTextEdit*> m_pages;
    QTimer m_flushTimer;
    qint64 m_stampSecond = -1;
    QString m_stamp;
};

extern DiagnosticsForm* diagnosticsForm;
