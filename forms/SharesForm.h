#pragma once

#include <QWidget>
#include <memory>

#include "store/DataHandler.h"

namespace Ui
{
class SharesForm;
}
class Item;
class QTabWidget;
class ShareForm;

// The "Shares" page: one closable tab for each received share list, opened by itself in the
// background once the list is complete.
class SharesForm : public QWidget, public DataHandler
{
    Q_OBJECT
public:
    explicit SharesForm(QWidget* ip_parent = nullptr);
    ~SharesForm() override;

    // Once the received-share schema exists: the form's types and actions, and the events
    // that open and replace tabs.
    void Init();
    void OnUserShare(Item* i_share);
    QTabWidget* TabControl() const;

public slots:
    void OnTabCloseRequested(int i_tabIndex);

private:
    void OnUserShareRemoved(Item* ip_share);
    void CloseForm(ShareForm* ip_form);

    std::unique_ptr<Ui::SharesForm> mp_ui;
};
