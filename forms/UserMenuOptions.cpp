#include "forms/UserMenuOptions.h"

#include <QAction>
#include <QMenu>

#include "forms/UserGroupsDialog.h"
#include "peer/PeerMessenger.h"
#include "shell/FormHost.h"
#include "store/Data.h"
#include "transfers/TransferQueueManager.h"

namespace
{
// Gets the user by name, which makes it if needed; an entry without a name reaches nobody.
ItemPtr UserItem(std::string const& i_user)
{
    return i_user.empty() ? ItemPtr() : ItemPtr(d.GetType("user")->GetItem(i_user));
}

void OpenGroupsDialog(std::string const& i_user)
{
    (new UserGroupsDialog(i_user, gp_formHost ? gp_formHost->DialogParent() : nullptr))->show();
}
} // namespace

UserMenuOptions::UserMenuOptions(QMenu* ip_menu, std::string const& i_user, QObject* ip_parent)
    : QObject(ip_parent)
{
    QVariant const l_user = QString::fromStdString(i_user);
    auto l_add = [&](char const* i_icon, char const* i_text, void (UserMenuOptions::*i_slot)())
    {
        QAction* lp_action = ip_menu->addAction(QIcon(QString::fromLatin1(i_icon)), QString::fromUtf8(i_text));
        lp_action->setData(l_user);
        connect(lp_action, &QAction::triggered, this, i_slot);
    };
    l_add(":/icons/chat_icon", "Message user", &UserMenuOptions::OnMessageUser);
    if (UserItem(i_user)["in_user_list"])
    {
        l_add(":/icons/users_icon", "Set user's groups", &UserMenuOptions::OnSetGroups);
        l_add(":/icons/remove_user_icon", "Remove user from list", &UserMenuOptions::OnRemoveFromList);
    }
    else
        l_add(":/icons/add_user_icon", "Add user to list", &UserMenuOptions::OnAddToList);
    l_add(":/icons/browse_icon", "Browse user's files", &UserMenuOptions::OnBrowseUser);
    ip_menu->addSeparator();
    if (UserItem(i_user)["unshared"])
        l_add(":/icons/browse_icon", "Re-share files with user", &UserMenuOptions::OnReshareUser);
    else
        l_add(":/icons/browse_icon", "Unshare files from user", &UserMenuOptions::OnUnshareUser);
}

std::string UserMenuOptions::SenderUser(QObject* ip_sender)
{
    auto* lp_action = qobject_cast<QAction*>(ip_sender);
    return lp_action ? lp_action->data().toString().toStdString() : std::string();
}

void UserMenuOptions::OnMessageUser()
{
    std::string const l_user = SenderUser(sender());
    if (!l_user.empty() && gp_formHost)
        gp_formHost->OpenChatForm(l_user);
}

void UserMenuOptions::OnSetGroups()
{
    std::string const l_user = SenderUser(sender());
    if (UserItem(l_user))
        OpenGroupsDialog(l_user);
}

void UserMenuOptions::OnRemoveFromList()
{
    if (ItemPtr const l_user = UserItem(SenderUser(sender())))
        l_user.Disconnect("in_user_list");
}

void UserMenuOptions::OnAddToList()
{
    std::string const l_user = SenderUser(sender());
    ItemPtr const l_item = UserItem(l_user);
    if (!l_item)
        return;
    if (!l_item["in_user_list"])
        l_item.NewItem("in_user_list");
    OpenGroupsDialog(l_user);
}

void UserMenuOptions::OnBrowseUser()
{
    std::string const l_user = SenderUser(sender());
    if (!UserItem(l_user) || !peerMessenger)
        return;
    peerMessenger->GetUserSharedFiles(l_user);
    if (gp_formHost)
        gp_formHost->ShowStatusMessage(tr("Asked %1 for the list of shared files").arg(QString::fromStdString(l_user)));
}

void UserMenuOptions::OnUnshareUser()
{
    std::string const l_user = SenderUser(sender());
    if (UserItem(l_user) && transferQueueManager)
        transferQueueManager->UnshareUser(l_user);
}

void UserMenuOptions::OnReshareUser()
{
    std::string const l_user = SenderUser(sender());
    if (UserItem(l_user) && transferQueueManager)
        transferQueueManager->ReshareUser(l_user);
}
