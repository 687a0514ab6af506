#pragma once

#include <QHash>
#include <QWidget>
#include <memory>
#include <string>

#include "store/DataHandler.h"

namespace Ui
{
class RoomForm;
}
class Item;
class QRoomUserListItemWidget;
class QTreeWidgetItem;

// One entered room on the Rooms tab: its chat, the line to write in and its users. It lives
// while the room is entered, across lost connections, and goes when the room is left.
class RoomForm : public QWidget, public DataHandler
{
    Q_OBJECT
public:
    explicit RoomForm(std::string const& i_room, QWidget* ip_parent = nullptr);
    ~RoomForm() override;

    void Init();
    // A chat line as the view gets it: the user in blue in brackets, then the text, both shown
    // as typed, with web addresses made links.
    static QString ChatLineHtml(std::string const& i_user, std::string const& i_chat);
    void AddStatusMessage(std::string const& i_text);
    std::string const& Room() const { return m_room; }

    void OnUserAdded(Item* ip_user);
    void OnUserRemoved(Item* ip_user);
    void OnLeftRoom(Item* ip_room);
    void OnRoomAutojoinOn(Item* ip_room);
    void OnRoomAutojoinOff(Item* ip_room);

public slots:
    void OnRoomChat(std::string const& i_room, std::string const& i_user, std::string const& i_chat);
    void OnConnected();
    void OnDisconnected();
    void OnEnterPressed();
    void OnUserListContextMenuRequested(QPoint const& i_point);
    void OnUserActivated(QTreeWidgetItem* ip_row);

private:
    void ListenToRoom(Item* ip_room);
    void AppendLine(QString const& i_line);
    void SetAutojoinText(bool i_on);
    void InsertSorted(QRoomUserListItemWidget* ip_row);

    std::string m_room;
    std::unique_ptr<Ui::RoomForm> mp_ui;
    // Rows by the exact bytes of the user's name, so that a row is found without a walk of the
    // list and two names that decode alike still get a row each.
    QHash<QByteArray, QTreeWidgetItem*> m_userRows;
};
