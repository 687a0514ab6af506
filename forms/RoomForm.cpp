#include "forms/RoomForm.h"

#include <QHeaderView>
#include <QMenu>

#include "forms/ChatLine.h"
#include "forms/QRoomUserListItemWidget.h"
#include "forms/UserMenuOptions.h"
#include "server/Server.h"
#include "shell/ActionSetToolBar.h"
#include "shell/FormHost.h"
#include "shell/PaletteColors.h"
#include "shell/SizeManager.h"
#include "store/Data.h"
#include "store/PathNode.h"
#include "ui_RoomForm.h"

namespace
{
QString FromUtf8(std::string const& i_bytes)
{
    // With the length, so that a NUL byte inside the text does not end it.
    return QString::fromUtf8(i_bytes.data(), static_cast<qsizetype>(i_bytes.size()));
}

// A number the server sent as an attribute; anything that is not one counts as 0.
long long Number(ItemPtr i_user, char const* i_attribute)
{
    bool l_ok = false;
    long long const l_number = QByteArray::fromStdString(i_user[i_attribute].AsString()).toLongLong(&l_ok);
    return l_ok ? l_number : 0;
}
} // namespace

RoomForm::RoomForm(std::string const& i_room, QWidget* ip_parent)
    : QWidget(ip_parent), m_room(i_room), mp_ui(std::make_unique<Ui::RoomForm>())
{
    mp_ui->setupUi(this);
    setFocusProxy(mp_ui->chatEdit);
    mp_ui->splitter->setStretchFactor(0, 1);
    mp_ui->splitter->setStretchFactor(1, 0);
    int const l_widths[] = {20, 25, 90, 50, 40};
    for (int l_column = 0; l_column < 5; ++l_column)
        mp_ui->userList->setColumnWidth(l_column, l_widths[l_column]);
    // The list keeps its order itself: a row goes straight to its place, since the tree's own
    // sorting would sort the whole room again after every join.
    QHeaderView* lp_header = mp_ui->userList->header();
    lp_header->setSortIndicatorShown(true);
    lp_header->setSectionsClickable(true);
    connect(lp_header, &QHeaderView::sortIndicatorChanged, mp_ui->userList, &QTreeWidget::sortItems);
    mp_ui->userList->sortByColumn(QRoomUserListItemWidget::UserColumn, Qt::AscendingOrder);

    actionBar->RegisterWidget(this, QStringLiteral("room"));
    actionBar->AddWidgetKey(this, QStringLiteral("room"), FromUtf8(m_room));
    ItemPtr const l_room = d.GetType("room")->GetItem(m_room);
    SetAutojoinText(l_room.IsConnected("room_autojoin"));
    ListenToRoom(l_room);
    // Paths fire only on changes: users already complete in the room are shown here.
    for (Item* lp_user : l_room.GetItems("user"))
        if (ItemPtr(lp_user)["average_download_speed"] && ItemPtr(lp_user)["shared_files_count"] &&
            ItemPtr(lp_user)["country_code"])
            OnUserAdded(lp_user);

    connect(gp_server, &Server::RoomChat, this, &RoomForm::OnRoomChat);
    connect(gp_server, &Server::Connected, this, &RoomForm::OnConnected);
    connect(gp_server, &Server::Disconnected, this, &RoomForm::OnDisconnected);
    connect(mp_ui->chatEdit, &QLineEdit::returnPressed, this, &RoomForm::OnEnterPressed);
    connect(mp_ui->userList, &QWidget::customContextMenuRequested, this, &RoomForm::OnUserListContextMenuRequested);
    connect(mp_ui->userList, &QTreeWidget::itemActivated, this, &RoomForm::OnUserActivated);
}

RoomForm::~RoomForm() = default;

void RoomForm::ListenToRoom(Item* ip_room)
{
    // The numbers come after the user's entry into the room (message 14 sends them last), so
    // every edge triggers, and the row appears with whichever arrives last.
    auto* lp_added = new PathNode(&d, "user");
    new PathNode(lp_added, ip_room, TriggerConnected);
    for (char const* lp_attribute : {"average_download_speed", "shared_files_count", "country_code"})
        new PathNode(lp_added, lp_attribute, TriggerConnected);
    ListenPath(lp_added, &RoomForm::OnUserAdded);

    auto* lp_removed = new PathNode(&d, "user");
    new PathNode(lp_removed, ip_room, NewlyDisconnected);
    ListenPath(lp_removed, &RoomForm::OnUserRemoved);

    struct RoomPath
    {
        char const* m_child;
        PathNodeRelation m_relation;
        void (RoomForm::*m_method)(Item*);
    };
    for (RoomPath const& l_path : {RoomPath{"in_room", NewlyDisconnected, &RoomForm::OnLeftRoom},
                                   RoomPath{"room_autojoin", NewlyConnected, &RoomForm::OnRoomAutojoinOn},
                                   RoomPath{"room_autojoin", NewlyDisconnected, &RoomForm::OnRoomAutojoinOff}})
    {
        auto* lp_root = new PathNode(ip_room);
        new PathNode(lp_root, l_path.m_child, l_path.m_relation);
        ListenPath(lp_root, l_path.m_method);
    }
}

void RoomForm::Init()
{
    // Every room tab shares these sizes; the first tab ever made starts from these.
    mp_ui->splitter->setSizes({280, 250});
    if (sizeManager)
    {
        sizeManager->RegisterSplitter(QStringLiteral("room_splitter"), mp_ui->splitter, {});
        sizeManager->RegisterTreeWidget(QStringLiteral("room_user_list"), mp_ui->userList);
    }
}

void RoomForm::SetAutojoinText(bool i_on)
{
    actionBar->SetWidgetActionText(this, QStringLiteral("toggle_room_autojoin"),
                                   i_on ? QStringLiteral("Auto-Join Room [on]") : QStringLiteral("Auto-Join Room [off]"));
}

void RoomForm::OnRoomAutojoinOn(Item*)
{
    SetAutojoinText(true);
}

void RoomForm::OnRoomAutojoinOff(Item*)
{
    SetAutojoinText(false);
}

void RoomForm::OnLeftRoom(Item*)
{
    // Runs inside this form's own handler: the deletion is the last thing it does.
    delete this;
}

void RoomForm::OnUserAdded(Item* ip_user)
{
    ItemPtr const l_user(ip_user);
    QByteArray const l_name = QByteArray::fromStdString(l_user.AsString());
    if (m_userRows.contains(l_name))
        return;
    auto* lp_row = new QRoomUserListItemWidget(QString::fromUtf8(l_name), Number(l_user, "shared_files_count"),
                                               Number(l_user, "average_download_speed"),
                                               FromUtf8(l_user["country_code"].AsString()));
    lp_row->setData(QRoomUserListItemWidget::UserColumn, Qt::UserRole, l_name);
    m_userRows.insert(l_name, lp_row);
    InsertSorted(lp_row);
}

void RoomForm::InsertSorted(QRoomUserListItemWidget* ip_row)
{
    QTreeWidget* lp_list = mp_ui->userList;
    int const l_column = lp_list->header()->sortIndicatorSection();
    bool const l_descending = lp_list->header()->sortIndicatorOrder() == Qt::DescendingOrder;
    int l_low = 0;
    int l_high = lp_list->topLevelItemCount();
    while (l_low < l_high)
    {
        int const l_middle = l_low + (l_high - l_low) / 2;
        auto const* lp_middle = static_cast<QRoomUserListItemWidget const*>(lp_list->topLevelItem(l_middle));
        bool const l_before = l_descending ? lp_middle->LessThan(*ip_row, l_column) : ip_row->LessThan(*lp_middle, l_column);
        if (l_before)
            l_high = l_middle;
        else
            l_low = l_middle + 1;
    }
    lp_list->insertTopLevelItem(l_low, ip_row);
}

void RoomForm::OnUserRemoved(Item* ip_user)
{
    delete m_userRows.take(QByteArray::fromStdString(ItemPtr(ip_user).AsString()));
}

void RoomForm::OnRoomChat(std::string const& i_room, std::string const& i_user, std::string const& i_chat)
{
    if (i_room != m_room)
        return;
    AppendLine(ChatLineHtml(i_user, i_chat));
}

QString RoomForm::ChatLineHtml(std::string const& i_user, std::string const& i_chat)
{
    return ChatLine(i_user, i_chat);
}

void RoomForm::AddStatusMessage(std::string const& i_text)
{
    AppendLine(StatusLine(FromUtf8(i_text)));
}

void RoomForm::AppendLine(QString const& i_line)
{
    AppendChatLine(mp_ui->chatView, PaletteColors::ReadableHtml(i_line, mp_ui->chatView->palette()));
}

void RoomForm::OnDisconnected()
{
    AddStatusMessage("Disconnected.");
}

void RoomForm::OnConnected()
{
    // The room stays entered across a lost connection, so it is entered again on the server.
    AddStatusMessage("Reconnected.");
    gp_server->EnterRoom(m_room);
}

void RoomForm::OnEnterPressed()
{
    QString const l_text = mp_ui->chatEdit->text();
    if (l_text.isEmpty())
        return;
    // No echo: the own line shows when the server sends it back.
    gp_server->SendRoomChat(m_room, l_text.toUtf8().toStdString());
    mp_ui->chatEdit->clear();
}

void RoomForm::OnUserActivated(QTreeWidgetItem* ip_row)
{
    // A double click or Return on a user opens the private chat with him.
    gp_formHost->OpenChatForm(ip_row->data(QRoomUserListItemWidget::UserColumn, Qt::UserRole).toByteArray().toStdString());
}

void RoomForm::OnUserListContextMenuRequested(QPoint const& i_point)
{
    QTreeWidgetItem* lp_row = mp_ui->userList->itemAt(i_point);
    if (!lp_row)
        return;
    QMenu l_menu;
    QByteArray const l_name = lp_row->data(QRoomUserListItemWidget::UserColumn, Qt::UserRole).toByteArray();
    new UserMenuOptions(&l_menu, l_name.toStdString(), &l_menu);
    l_menu.exec(mp_ui->userList->viewport()->mapToGlobal(i_point));
}
