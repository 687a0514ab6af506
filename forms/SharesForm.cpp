#include "forms/SharesForm.h"

#include "forms/ShareForm.h"
#include "shell/ActionSetToolBar.h"
#include "store/Data.h"
#include "store/PathNode.h"
#include "ui_SharesForm.h"

SharesForm::SharesForm(QWidget* ip_parent) : QWidget(ip_parent), mp_ui(std::make_unique<Ui::SharesForm>())
{
    mp_ui->setupUi(this);
}

SharesForm::~SharesForm() = default;

QTabWidget* SharesForm::TabControl() const
{
    return mp_ui->tabControl;
}

void SharesForm::Init()
{
    // A share is whole once it gets its loaded mark, which its maker adds last of all.
    auto* lp_share = new PathNode(&d, "user_share");
    new PathNode(lp_share, "user_share_loaded", NewlyConnected);
    ListenPath(lp_share, &SharesForm::OnUserShare);
    ListenItemRemoved("user_share", &SharesForm::OnUserShareRemoved);

    Type* lp_tab = d.NewType("user_share_tab", true, false, true);
    Type* lp_folderNode = d.NewType("user_share_folder_node", false, false, true);
    Type* lp_fileNode = d.NewType("user_share_file_node", false, false, true);
    d.GetType("user_share")->RelateToType(lp_tab, One, One, false);
    d.GetType("user_share_folder")->RelateToType(lp_folderNode, One, One, false);
    d.GetType("user_share_file")->RelateToType(lp_fileNode, One, One, false);

    connect(mp_ui->tabControl, &QTabWidget::tabCloseRequested, this, &SharesForm::OnTabCloseRequested);
    if (actionBar)
    {
        actionBar->AddSetAction("share_folders", "download_share_folder", "Download Folder", ":/icons/transfer_icon", true);
        actionBar->AddSetAction("share_files", "download_share_file", "Download File", ":/icons/transfer_icon", true);
        actionBar->AutoFocusTabWidget(mp_ui->tabControl);
    }
}

void SharesForm::OnUserShare(Item* i_share)
{
    auto* lp_form = new ShareForm(i_share, this);
    connect(lp_form, &ShareForm::CloseRequested, this, &SharesForm::CloseForm);
    QTabWidget* lp_tabs = mp_ui->tabControl;
    QString const l_title = QString::fromUtf8(lp_form->User());
    // A newer list from the same user takes the place of the tab of the list it replaced, and
    // is shown if that one was.
    for (int l_index = 0; l_index < lp_tabs->count(); ++l_index)
    {
        auto* lp_old = qobject_cast<ShareForm*>(lp_tabs->widget(l_index));
        if (!lp_old || lp_old->Share() || lp_old->User() != lp_form->User())
            continue;
        bool const l_wasCurrent = lp_tabs->currentIndex() == l_index;
        lp_tabs->insertTab(l_index, lp_form, l_title);
        if (l_wasCurrent)
            lp_tabs->setCurrentWidget(lp_form);
        return;
    }
    lp_tabs->addTab(lp_form, l_title);
}

void SharesForm::OnUserShareRemoved(Item* ip_share)
{
    // Only a newer list removes a share that still has its tab; the tab's own close removes
    // the tab item first.
    if (auto* lp_form = static_cast<ShareForm*>(ItemPtr(ip_share)["user_share_tab"].AsPointer<QWidget>()))
        lp_form->OnShareRemoved();
}

void SharesForm::CloseForm(ShareForm* ip_form)
{
    int const l_index = mp_ui->tabControl->indexOf(ip_form);
    if (l_index >= 0)
        OnTabCloseRequested(l_index);
}

void SharesForm::OnTabCloseRequested(int i_tabIndex)
{
    auto* lp_form = qobject_cast<ShareForm*>(mp_ui->tabControl->widget(i_tabIndex));
    if (!lp_form)
        return;
    mp_ui->tabControl->removeTab(i_tabIndex);
    lp_form->Delete();
}
