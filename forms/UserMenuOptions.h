#pragma once

#include <QObject>
#include <string>

class QMenu;

// The one right-click menu for a user, filled into a menu that the caller runs. It keeps no
// state: each entry carries the user's name, and the slot reads it back from its sender.
class UserMenuOptions : public QObject
{
    Q_OBJECT
public:
    UserMenuOptions(QMenu* ip_menu, std::string const& i_user, QObject* ip_parent = nullptr);

private slots:
    void OnMessageUser();
    void OnSetGroups();
    void OnRemoveFromList();
    void OnAddToList();
    void OnBrowseUser();
    void OnUnshareUser();
    void OnReshareUser();

private:
    static std::string SenderUser(QObject* ip_sender);
};
