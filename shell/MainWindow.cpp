#include "shell/MainWindow.h"

#include <QApplication>
#include <QCloseEvent>
#include <QCoreApplication>
#include <QDir>
#include <QFileDialog>
#include <QInputDialog>
#include <QFile>
#include <QLabel>
#include <QMenu>
#include <QMoveEvent>
#include <QProgressBar>
#include <QResizeEvent>
#include <QShortcut>
#include <QStatusBar>
#include <QTabBar>

#include "dnet/DNetManager.h"
#include "forms/AddSharedFolderDialog.h"
#include "forms/ChangeListeningPortDialog.h"
#include "forms/ChatForm.h"
#include "forms/ChangeUsernamePasswordDialog.h"
#include "forms/WelcomeDialog.h"
#include "forms/DataDialog.h"
#include "forms/QRoomListItemWidget.h"
#include "forms/RoomForm.h"
#include "forms/SearchForm.h"
#include "forms/SharedFilesRescannedDialog.h"
#include "forms/SharesForm.h"
#include "forms/TransfersForm.h"
#include "forms/UserListForm.h"
#include "forms/WishListSearcher.h"
#include "portforward/PortForwarder.h"
#include "server/Server.h"
#include "shares/SharedFoldersManager.h"
#include "shell/ActionSetToolBar.h"
#include "shell/DiagnosticsForm.h"
#include "shell/EventToolBar.h"
#include "shell/FocusWidget.h"
#include "shell/HeapTrim.h"
#include "shell/InformationBox.h"
#include "shell/ShowState.h"
#include "shell/SizeManager.h"
#include "shell/DesktopIntegration.h"
#include "shell/StallProbe.h"
#include "shell/TimerManager.h"
#include "transfers/TransferQueueManager.h"
#include "peer/PeerMessenger.h"
#include "store/Data.h"
#include "store/DataSaver.h"
#include "store/Log.h"
#include "store/Settings.h"
#include "ui_MainWindow.h"

MainWindow* mainWindow = nullptr;

namespace
{
// Hands focus to the form on the current tab, which passes it on to its line to type in.
void FocusCurrentTab(QTabWidget* ip_tabs)
{
    if (QWidget* lp_form = ip_tabs->currentWidget())
        lp_form->setFocus(Qt::OtherFocusReason);
}
} // namespace

MainWindow::MainWindow(QWidget* ip_parent) : QMainWindow(ip_parent), mp_ui(std::make_unique<Ui::MainWindow>())
{
    mainWindow = this;
    gp_formHost = this;
    mp_ui->setupUi(this);
    addToolBar(Qt::TopToolBarArea, new ActionSetToolBar(this));
    mp_ui->diagnosticsTabLayout->addWidget(new DiagnosticsForm(mp_ui->diagnosticsTab));
    mp_transfersForm = new TransfersForm(mp_ui->transfersTab);
    mp_ui->transfersTabLayout->addWidget(mp_transfersForm);
    mp_userListForm = new UserListForm(mp_ui->usersTab);
    mp_ui->usersTabLayout->addWidget(mp_userListForm);
    mp_ui->actionDisconnect->setEnabled(false);

    SetConnectionIcon(":/icons/offline_icon");
    mp_ui->sharedFoldersList->setColumnWidth(0, 400);

    new TimerManager(this);
    new StallProbe(this);
    new DataSaver();
    mp_server = new Server();
    Server::CreateData();

    connect(mp_server, &Server::Connecting, this, &MainWindow::OnConnecting);
    connect(mp_server, &Server::Connected, this, &MainWindow::OnConnected);
    connect(mp_server, &Server::Disconnected, this, &MainWindow::OnDisconnected);
    connect(timerManager->HalfMinuteTimer(), &QTimer::timeout, mp_server, &Server::AttemptReconnect);
    connect(timerManager->HourTimer(), &QTimer::timeout, mp_server, &Server::RenewPortMapping);
    connect(mp_ui->actionConnect, &QAction::triggered, this, &MainWindow::OnConnectMenuOptionClicked);
    connect(mp_ui->actionDisconnect, &QAction::triggered, this, &MainWindow::OnDisconnectMenuOptionClicked);
    connect(mp_ui->actionData, &QAction::triggered, this, &MainWindow::OnShowData);

    DeclareActionSets();
    SetUpRooms();
    SetUpPeerMessenger();

    DeclareSettingsTypes();
    CreateShareManagers();
    SetUpPrivateChat();
    SetUpFileSharing();

    new SizeManager();
    diagnosticsForm->Init();

    new TransferQueueManager();
    connect(timerManager->HalfMinuteTimer(), &QTimer::timeout, transferQueueManager, &TransferQueueManager::EveryHalfMinute);
    connect(timerManager->FiveMinuteTimer(), &QTimer::timeout, transferQueueManager, &TransferQueueManager::PeriodicCheck);

    // Before the load, so that its listeners see the saved transfers arrive.
    mp_transfersForm->Init();
    // The Shares page; its types hang on the received-share types of the shares manager.
    auto* lp_sharesForm = new SharesForm(mp_ui->sharesTab);
    mp_ui->sharesTabLayout->addWidget(lp_sharesForm);
    lp_sharesForm->Init();
    mp_searchForm = new SearchForm(mp_ui->searchTab);
    mp_ui->searchTabLayout->addWidget(mp_searchForm);
    new WishListSearcher();

    addToolBarBreak(Qt::TopToolBarArea);
    addToolBar(Qt::TopToolBarArea, new EventToolBar(this));

    auto* lp_username = new PathNode(d.GetType("global")->GetItem("username"));
    new PathNode(lp_username, "global_value", TriggerConnected);
    ListenPath(lp_username, &MainWindow::OnUsernameChanged);
    connect(mp_server, &Server::ConnectionFailed, this, &MainWindow::OnConnectionFailed);

    dataSaver->Load(&d, DataFileName().c_str());
    sharedFoldersManager->Init();

    mp_desktop = new DesktopIntegration(this, mp_server);
    if (GetGlobalValue("username").IsNull())
        ShowWelcomeDialog();
    else
        mp_server->Connect();
    // Only now, so that the walk at start-up opens no dialog: it is shown for a rescan asked for.
    ConnectRescanDialog();
    // Shown last, so that it stands above the other boxes: it tells why settings may be gone.
    if (!dataSaver->DamagedCopy().empty())
        ShowInformationBox(this, tr("Damaged Data File"),
                           tr("The data file was damaged. It is kept as it was in %1, and Tidewick started with what "
                              "could be read from it.")
                               .arg(QString::fromStdString(dataSaver->DamagedCopy())));

    // Filling the check box goes through its toggled signal like a click, so the port
    // forwarder starts here when UPnP is on.
    connect(mp_ui->uPnPCheckBox, &QCheckBox::toggled, this, &MainWindow::OnUPnPCheckboxToggled);
    mp_ui->downloadFolderEdit->setText(QString::fromStdString(GetGlobal("download_folder")));
    mp_ui->uPnPCheckBox->setChecked(GetGlobal("use_upnp") == "yes");
    mp_ui->listeningPortEdit->setText(QString::fromStdString(GetGlobal("listening_port")));

    auto* lp_newPort = new PathNode(d.GetType("global")->GetItem("new_listening_port"));
    new PathNode(lp_newPort, "global_value", TriggerConnected);
    ListenPath(lp_newPort, &MainWindow::OnNewListeningPortChanged);

    sizeManager->RegisterResizableWindow(QStringLiteral("main_window"), &m_sizeProxy);
    mp_ui->roomListSplitter->setSizes({width() - 220, 220});
    sizeManager->RegisterSplitter(QStringLiteral("room_list_splitter"), mp_ui->roomListSplitter, {});
    sizeManager->RegisterTreeWidget(QStringLiteral("room_list"), mp_ui->roomList);

    mp_searchForm->Init();
    mp_userListForm->Init();

    connect(timerManager->SaveTimer(), &QTimer::timeout, this, &MainWindow::OnSaveTimer);
    // Half a minute of transfers, chat and sweeps leaves freed pages behind, which the allocator
    // would otherwise keep resident.
    connect(timerManager->HalfMinuteTimer(), &QTimer::timeout, this, &ReturnFreeHeapToSystem);
}

void MainWindow::resizeEvent(QResizeEvent* ip_event)
{
    QMainWindow::resizeEvent(ip_event);
    if (!isMaximized())
        emit m_sizeProxy.WindowResized(ip_event->size().width(), ip_event->size().height());
}

void MainWindow::moveEvent(QMoveEvent* ip_event)
{
    QMainWindow::moveEvent(ip_event);
    // The event tells where the frame went; the place is kept as geometry() has it, which is
    // what SetPosition gives back, so that it does not creep by the frame's width at each start.
    if (!isMaximized())
        emit m_sizeProxy.WindowMoved(geometry().x(), geometry().y());
}

int MainWindow::SizeProxy::GetX() const
{
    return mainWindow->geometry().x();
}

int MainWindow::SizeProxy::GetY() const
{
    return mainWindow->geometry().y();
}

int MainWindow::SizeProxy::GetWidth() const
{
    return mainWindow->geometry().width();
}

int MainWindow::SizeProxy::GetHeight() const
{
    return mainWindow->geometry().height();
}

void MainWindow::SizeProxy::SetPosition(int i_x, int i_y)
{
    QRect const l_now = mainWindow->geometry();
    mainWindow->setGeometry(i_x, i_y, l_now.width(), l_now.height());
}

void MainWindow::SizeProxy::SetSize(int i_width, int i_height)
{
    QRect const l_now = mainWindow->geometry();
    mainWindow->setGeometry(l_now.x(), l_now.y(), i_width, i_height);
}

void MainWindow::SetUpPeerMessenger()
{
    auto* lp_messenger = new PeerMessenger();
    connect(mp_server, &Server::Connected, lp_messenger, &PeerMessenger::OnConnectedToServer);
    connect(mp_server, &Server::IndirectPeerConnectionFailure, lp_messenger, &PeerMessenger::OnIndirectPeerConnectionFailure);
    connect(timerManager->HalfMinuteTimer(), &QTimer::timeout, lp_messenger, &PeerMessenger::EveryHalfMinute);
    connect(lp_messenger, &PeerMessenger::ListeningChanged, this, &MainWindow::OnListeningChanged);
}

void MainWindow::OnListeningChanged()
{
    QString const l_error = peerMessenger->ListenError();
    mp_ui->listeningNoticeLabel->setText(l_error.isEmpty() ? QString()
                                                           : tr("Could not listen for peer connections on port %1: %2")
                                                                 .arg(QString::fromStdString(GetGlobal("listening_port")), l_error));
    mp_ui->listeningNoticeLabel->setVisible(!l_error.isEmpty());
}

MainWindow::~MainWindow()
{
    g_showIsOver = true;
    // Before the managers go, so that the browser sees nothing of the tear-down.
    delete mp_dataDialog;
    mp_server->Disconnect();
    d.RemoveDisconnectedItems();
    dataSaver->Save(&d, DataFileName().c_str());
    delete transferQueueManager;
    delete wishListSearcher;
    delete sharedFoldersManager;
    delete dnetManager;
    delete peerMessenger;
    delete mp_server;
    delete dataSaver;
    delete timerManager;
    mp_ui.reset();
    // Last: the widgets' destroyed signals still reach it.
    delete sizeManager;
    gp_formHost = nullptr;
    mainWindow = nullptr;
}

void MainWindow::DeclareActionSets()
{
    std::string const l_room = ":/icons/room_icon";
    actionBar->AddSetAction("room_list", "enter_room", "Enter Room", l_room, false);
    actionBar->AddSetAction("room_list", "create_room", "Create Room", l_room, false);
    actionBar->AddSetAction("room_list", "refresh_room_list", "Refresh Room List", l_room, false);
    actionBar->AddSetAction("room", "leave_room", "Leave Room", l_room, false);
    actionBar->AddSetAction("room", "toggle_room_autojoin", "Toggle Room Autojoin", l_room, false);
    std::string const l_browse = ":/icons/browse_icon";
    actionBar->AddSetAction("shared_folders", "set_download_folder", "Set Download Folder", l_browse, false);
    actionBar->AddSetAction("shared_folders", "share_folder", "Share Folder", l_browse, false);
    actionBar->AddSetAction("shared_folders", "unshare_folder", "Unshare Folder", l_browse, false);
    actionBar->AddSetAction("shared_folders", "rescan_shares", "Rescan Shares", l_browse, false);
    actionBar->AddSetAction("login_options", "set_user_pass", "Change Username/Password", ":icons/online_icon", false);
    actionBar->AddSetAction("login_options", "set_listening_port", "Change Listening Port", ":icons/online_icon", false);

    actionBar->RegisterWidget(mp_ui->roomList, QStringLiteral("room_list"));
    actionBar->AddWidgetColumnKey(mp_ui->roomList, QStringLiteral("room"), 0);
    actionBar->RegisterWidget(mp_ui->loginOptionsTab, QStringLiteral("login_options"));
    actionBar->RegisterWidget(mp_ui->fileSharingOptionsTab, QStringLiteral("shared_folders"));
    actionBar->AutoFocusTabWidget(mp_ui->mainTabWidget);
    actionBar->AutoFocusTabWidget(mp_ui->optionsTabWidget);
    connect(qApp, &QApplication::focusChanged, actionBar, &ActionSetToolBar::OnApplicationFocusChanged);
    connect(actionBar, &ActionSetToolBar::ActionTriggered, this, &MainWindow::OnToolBarActionTriggered);
    connect(mp_ui->mainTabWidget, &QTabWidget::currentChanged, this, &MainWindow::OnMainWindowTabChanged);
}

void MainWindow::OnShowData()
{
    if (!mp_dataDialog)
    {
        mp_dataDialog = new DataDialog(&d, this);
        connect(mp_dataDialog, &QObject::destroyed, this, [this] { mp_dataDialog = nullptr; });
    }
    mp_dataDialog->show();
    mp_dataDialog->raise();
    mp_dataDialog->activateWindow();
}

void MainWindow::OnMainWindowTabChanged(int)
{
    // Focus selects the tool bar's action set, so the pages with inner tabs hand it to the
    // current one: the Options page, and the Users page, whose actions would otherwise show
    // only after a click into its list.
    QWidget* lp_page = mp_ui->mainTabWidget->currentWidget();
    if (lp_page == mp_ui->optionsTab && mp_ui->optionsTabWidget->currentWidget())
        mp_ui->optionsTabWidget->currentWidget()->setFocus(Qt::OtherFocusReason);
    else if (lp_page == mp_ui->usersTab)
        mp_userListForm->FocusCurrentPage();
    else if (lp_page == mp_ui->transfersTab)
        mp_transfersForm->FocusCurrentPage();
    else if (lp_page == mp_ui->chatTab)
        FocusCurrentTab(mp_ui->chatTabControl);
    else if (lp_page == mp_ui->roomsTab)
        FocusCurrentTab(mp_ui->roomTabWidget);
}

void MainWindow::OnToolBarActionTriggered(std::string i_action)
{
    std::string const l_room = actionBar->GetKey(QStringLiteral("room")).toStdString();
    if (i_action == "enter_room" || i_action == "leave_room")
    {
        // A room without a name is none: nothing is asked of the server.
        if (l_room.empty())
            return;
        if (i_action == "enter_room")
            mp_server->EnterRoom(l_room);
        else
            mp_server->LeaveRoom(l_room);
    }
    else if (i_action == "create_room")
        OnCreateRoom();
    else if (i_action == "refresh_room_list")
        mp_server->GetRoomList();
    else if (i_action == "toggle_room_autojoin")
    {
        ItemPtr l_roomItem = d.GetType("room")->HasItem(l_room);
        if (!l_roomItem)
            return;
        if (l_roomItem.IsConnected("room_autojoin"))
            l_roomItem.Disconnect("room_autojoin");
        else
            l_roomItem.NewItem("room_autojoin");
    }
    else if (i_action == "set_user_pass")
        (new ChangeUsernamePasswordDialog(this))->show();
    else if (i_action == "set_listening_port")
        (new ChangeListeningPortDialog(this))->show();
    else if (i_action == "set_download_folder")
        OnSetDownloadFolder();
    else if (i_action == "share_folder")
        (new AddSharedFolderDialog(this))->show();
    else if (i_action == "unshare_folder")
        UnshareSelectedFolders();
    else if (i_action == "rescan_shares")
        sharedFoldersManager->RescanShares();
}

void MainWindow::SetUpRooms()
{
    mp_ui->roomList->setColumnWidth(0, 150);
    mp_ui->roomList->setColumnWidth(1, 30);
    mp_ui->roomList->sortByColumn(0, Qt::AscendingOrder);
    mp_ui->roomListSplitter->setStretchFactor(0, 1);
    mp_ui->roomListSplitter->setStretchFactor(1, 0);
    mp_ui->roomListSplitter->setSizes({width() - 220, 220});
    mp_ui->roomTabWidget->tabBar()->setContextMenuPolicy(Qt::CustomContextMenu);

    ListenPairConnection("room", "user_count", &MainWindow::OnRoomUserCountAdded);
    ListenPairConnection("room", "in_room", &MainWindow::OnEnteredRoom);
    connect(mp_ui->roomList, &QTreeWidget::itemDoubleClicked, this, &MainWindow::OnRoomListItemDoubleClicked);
    connect(mp_ui->roomTabWidget, &QTabWidget::currentChanged, this, &MainWindow::OnRoomTabChanged);
    connect(mp_ui->roomTabWidget->tabBar(), &QWidget::customContextMenuRequested, this,
            &MainWindow::OnRoomTabContextMenuRequested);
    for (QKeySequence const& l_key : {QKeySequence(Qt::Key_Return), QKeySequence(Qt::Key_Enter)})
    {
        auto* lp_shortcut = new QShortcut(l_key, mp_ui->roomList, nullptr, nullptr, Qt::WidgetShortcut);
        connect(lp_shortcut, &QShortcut::activated, this,
                [this] { EnterRoomOfRow(mp_ui->roomList->currentItem()); });
    }
}

void MainWindow::OnRoomUserCountAdded(ConnectionInfo& i_info)
{
    ItemPtr const l_room(i_info.m_from);
    QByteArray const l_name = QByteArray::fromStdString(l_room.AsString());
    if (m_roomRows.contains(l_name))
        return;
    auto* lp_row = new QRoomListItemWidget(QString::fromUtf8(l_name),
                                           QString::fromStdString(ItemPtr(i_info.m_to).AsString()));
    lp_row->setData(0, Qt::UserRole, l_name);
    m_roomRows.insert(l_name, lp_row);
    mp_ui->roomList->addTopLevelItem(lp_row);
}

void MainWindow::OnRoomListItemDoubleClicked(QTreeWidgetItem* ip_item, int i_column)
{
    if (i_column == 0)
        EnterRoomOfRow(ip_item);
}

void MainWindow::EnterRoomOfRow(QTreeWidgetItem* ip_row)
{
    if (!ip_row)
        return;
    std::string const l_room = ip_row->data(0, Qt::UserRole).toByteArray().toStdString();
    mp_server->EnterRoom(l_room);
    if (RoomForm* lp_open = OpenRoomForm(l_room))
        mp_ui->roomTabWidget->setCurrentWidget(lp_open);
}

RoomForm* MainWindow::OpenRoomForm(std::string const& i_room) const
{
    for (int l_index = 0; l_index < mp_ui->roomTabWidget->count(); ++l_index)
        if (auto* lp_form = qobject_cast<RoomForm*>(mp_ui->roomTabWidget->widget(l_index));
            lp_form && lp_form->Room() == i_room)
            return lp_form;
    return nullptr;
}

void MainWindow::OnEnteredRoom(ConnectionInfo& i_info)
{
    std::string const l_room = ItemPtr(i_info.m_from).AsString();
    if (OpenRoomForm(l_room))
        return;
    auto* lp_form = new RoomForm(l_room, mp_ui->roomTabWidget);
    // "&" would otherwise mark a shortcut letter and vanish from the tab.
    QString const l_title = QString::fromUtf8(l_room.data(), static_cast<qsizetype>(l_room.size()));
    mp_ui->roomTabWidget->addTab(lp_form, QString(l_title).replace(QLatin1Char('&'), QStringLiteral("&&")));
    lp_form->Init();
    FocusWidget(lp_form);
}

void MainWindow::OnRoomTabChanged(int i_index)
{
    if (i_index != -1)
        FocusCurrentTab(mp_ui->roomTabWidget);
}

void MainWindow::OnRoomTabContextMenuRequested(QPoint const& i_point)
{
    QTabBar* lp_bar = mp_ui->roomTabWidget->tabBar();
    auto* lp_form = qobject_cast<RoomForm*>(mp_ui->roomTabWidget->widget(lp_bar->tabAt(i_point)));
    if (!lp_form)
        return;
    QMenu l_menu;
    std::string const l_room = lp_form->Room();
    l_menu.addAction(QStringLiteral("Leave Room"), this, [this, l_room] { mp_server->LeaveRoom(l_room); });
    l_menu.exec(lp_bar->mapToGlobal(i_point));
}

void MainWindow::OnCreateRoom()
{
    // The server makes a room when its first member enters it.
    bool l_ok = false;
    QString const l_name = QInputDialog::getText(this, QStringLiteral("Create Room"), QStringLiteral("Room name:"),
                                                 QLineEdit::Normal, QString(), &l_ok)
                               .trimmed();
    if (l_ok && !l_name.isEmpty())
        mp_server->EnterRoom(l_name.toStdString());
}

void MainWindow::OnSetDownloadFolder()
{
    QString const l_folder = QFileDialog::getExistingDirectory(this, QStringLiteral("Set Download Folder"));
    if (l_folder.isEmpty())
        return;
    SetGlobal("download_folder", l_folder.toStdString());
    mp_ui->downloadFolderEdit->setText(l_folder);
}

void MainWindow::DeclareSettingsTypes()
{
    Type* lp_global = d.NewType("global", true, false, true);
    Type* lp_vglobal = d.NewType("vglobal", true, false, true);
    Type* lp_value = d.NewType("global_value", false, false, true);
    lp_global->RelateToType(lp_value, Many, One, false);
    lp_vglobal->RelateToType(lp_value, Many, One, false);
    dataSaver->m_savedTypes.insert("global");
    dataSaver->AddSavedByConnectionType("global_value", "global");

    Type* lp_wish = d.NewType("wish_list_item", true, false, true);
    Type* lp_wishEnabled = d.NewType("wish_list_item_enabled", false, true, true);
    lp_wish->RelateToType(lp_wishEnabled, Many, One, false);
    dataSaver->m_savedTypes.insert("wish_list_item");
    dataSaver->m_savedTypes.insert("wish_list_item_enabled");
}

std::string MainWindow::DataFileName()
{
    return QFile::encodeName(QDir::homePath() + QStringLiteral("/.Tidewick")).toStdString();
}

void MainWindow::OnSaveTimer()
{
    // Every finished download, connection and changed setting leaves value items nothing holds;
    // only a sweep takes them, and without one a client that runs for days grows without end.
    d.RemoveDisconnectedItems();
    dataSaver->SaveInBackground(&d, DataFileName().c_str());
}

void MainWindow::closeEvent(QCloseEvent* ip_event)
{
    if (!m_quitting && mp_desktop && mp_desktop->HideToTray())
    {
        ip_event->ignore();
        return;
    }
    // Closing the main window ends the program even while a dialog of it stands open.
    ip_event->accept();
    QCoreApplication::quit();
}

void MainWindow::Quit()
{
    m_quitting = true;
    // A hidden window takes a close all the same.
    if (!close())
        QCoreApplication::quit();
}

void MainWindow::ShowWelcomeDialog()
{
    auto* lp_welcome = new WelcomeDialog(this);
    connect(lp_welcome, &WelcomeDialog::ConnectRequested, mp_server, &Server::Connect);
    // The hint stays for those who dismiss the dialog: it says where the name is set later.
    connect(lp_welcome, &WelcomeDialog::Dismissed, this, &MainWindow::ShowNoUsernameBox);
    lp_welcome->show();
}

void MainWindow::ShowNoUsernameBox()
{
    ShowInformationBox(this, QStringLiteral("No Username"),
                       QStringLiteral("You do not yet have a username set. Please set one from the Options tab and "
                                      "use the Connect menu option to connect."));
}

void MainWindow::OnConnectMenuOptionClicked()
{
    mp_server->Connect();
}

void MainWindow::OnDisconnectMenuOptionClicked()
{
    mp_server->Disconnect();
}

void MainWindow::SetConnectionIcon(char const* i_icon)
{
    QIcon const l_icon(QString::fromLatin1(i_icon));
    if (auto* lp_app = qobject_cast<QApplication*>(QCoreApplication::instance()))
        lp_app->setWindowIcon(l_icon);
    setWindowIcon(l_icon);
}

void MainWindow::OnConnecting()
{
    mp_ui->actionConnect->setEnabled(false);
    mp_ui->actionDisconnect->setEnabled(false);
}

void MainWindow::OnConnected()
{
    mp_ui->actionConnect->setEnabled(false);
    mp_ui->actionDisconnect->setEnabled(true);
    SetConnectionIcon(":/icons/online_icon");
}

void MainWindow::OnDisconnected()
{
    mp_ui->actionConnect->setEnabled(true);
    mp_ui->actionDisconnect->setEnabled(false);
    SetConnectionIcon(":/icons/offline_icon");
}

void MainWindow::OnConnectionFailed(std::string const& i_reason)
{
    if (i_reason != "INVALIDPASS")
        return;
    ShowInformationBox(this, QStringLiteral("Login Failure: Wrong Password"),
                       QStringLiteral("Login failed. The password you supplied does not match your username. Please "
                                      "change your login settings in the Options tab and try reconnecting."));
}

void MainWindow::OnUPnPCheckboxToggled(bool i_checked)
{
    SetGlobal("use_upnp", i_checked ? "yes" : "no");
    if (i_checked)
        portForwarder->Init();
}

void MainWindow::OnUsernameChanged(Item* ip_item)
{
    mp_ui->usernameEdit->setText(QString::fromStdString(ItemPtr(ip_item)["global_value"].AsString()));
}

void MainWindow::OnNewListeningPortChanged(Item* ip_item)
{
    mp_ui->listeningPortEdit->setText(QString::fromStdString(ItemPtr(ip_item)["global_value"].AsString()));
}

void MainWindow::SetUpPrivateChat()
{
    Type* lp_widget = d.NewType("user_chat_widget", true, false, true);
    lp_widget->RelateToType(d.GetType("user"), One, One, false);
    connect(mp_server, &Server::PrivateChat, this, &MainWindow::OnPrivateChat);
    connect(mp_ui->chatTabControl, &QTabWidget::tabCloseRequested, this, &MainWindow::OnChatTabClosed);
    connect(mp_ui->chatTabControl, &QTabWidget::currentChanged, this, &MainWindow::OnChatTabChanged);
}

void MainWindow::OnChatTabChanged(int)
{
    // Only while the user works on the Chat page: the first tab, which a message from afar
    // makes current, must not take the focus from elsewhere.
    QWidget* const lp_focus = QApplication::focusWidget();
    if (!g_showIsOver && mp_ui->chatTab->isVisible() && (!lp_focus || mp_ui->chatTab->isAncestorOf(lp_focus)))
        FocusCurrentTab(mp_ui->chatTabControl);
}

ChatForm* MainWindow::GetChatForm(std::string const& i_user)
{
    ItemPtr const l_user = d.GetType("user")->GetItem(i_user);
    if (auto* lp_form = qobject_cast<ChatForm*>(l_user["user_chat_widget"].AsPointer<QWidget>()))
        return lp_form;
    auto* lp_form = new ChatForm(i_user, mp_ui->chatTabControl);
    // A name is shown as typed: a single "&" would otherwise turn into a mnemonic.
    mp_ui->chatTabControl->addTab(lp_form, QString::fromUtf8(i_user).replace(u'&', QStringLiteral("&&")));
    return lp_form;
}

void MainWindow::ShowStatusMessage(QString const& i_text)
{
    statusBar()->showMessage(i_text, 10000);
}

void MainWindow::OpenChatForm(std::string const& i_user)
{
    FocusWidgetAndParents(GetChatForm(i_user));
}

void MainWindow::OnPrivateChat(std::string const& i_user, std::string const& i_chat, time_t, bool)
{
    if (i_user.empty())
    {
        Log(QStringLiteral("server"), 1, QStringLiteral("Dropped a private message without a sender name"));
        return;
    }
    GetChatForm(i_user)->AddChat(i_chat);
}

void MainWindow::OnChatTabClosed(int i_index)
{
    // The name comes from the form: the tab's text has its "&" doubled.
    auto* lp_form = qobject_cast<ChatForm*>(mp_ui->chatTabControl->widget(i_index));
    if (!lp_form)
        return;
    lp_form->Detach();
    mp_ui->chatTabControl->removeTab(i_index);
    lp_form->deleteLater();
}


void MainWindow::CreateShareManagers()
{
    // The search tree's manager first: the shares manager takes its search requests.
    auto* lp_dnet = new DNetManager();
    lp_dnet->Attach(mp_server, peerMessenger);
    new SharedFoldersManager();
}

void MainWindow::SetUpFileSharing()
{
    // Registered before the load, so that the folders read from the data file get their rows.
    ListenItemAdded("shared_folder", &MainWindow::OnSharedFolderAdded);
    ListenItemRemoved("shared_folder", &MainWindow::OnSharedFolderRemoved);
    ListenConnection("shared_folder", &MainWindow::OnSharedFolderChange);
    ListenDisconnection("shared_folder", &MainWindow::OnSharedFolderChange);
    connect(mp_ui->optionsTabWidget, &QTabWidget::currentChanged, this, &MainWindow::OnOptionsTabSelectionChanged);

    mp_statusShareLabel = new QLabel(this);
    mp_statusShareLabel->setObjectName(QStringLiteral("shareStatusLabel"));
    mp_statusShareBar = new QProgressBar(this);
    mp_statusShareBar->setRange(0, 0);
    mp_statusShareBar->setTextVisible(false);
    mp_statusShareBar->setMaximumWidth(120);
    statusBar()->addPermanentWidget(mp_statusShareLabel);
    statusBar()->addPermanentWidget(mp_statusShareBar);
    // Before Init, so that the walk at start-up shows its progress too.
    connect(sharedFoldersManager, &SharedFoldersManager::ScanProgress, this, &MainWindow::OnShareScanProgress);
    OnShareScanProgress(0, 0, false);
}

void MainWindow::OnShareScanProgress(int i_files, int i_folders, bool i_scanning)
{
    QString const l_text = (i_scanning ? QStringLiteral("Scanning shared folders: %1 files in %2 folders")
                                       : QStringLiteral("Sharing %1 files in %2 folders"))
                               .arg(i_files)
                               .arg(i_folders);
    mp_ui->shareScanLabel->setText(l_text);
    mp_statusShareLabel->setText(l_text);
    mp_ui->shareScanProgressBar->setVisible(i_scanning);
    mp_statusShareBar->setVisible(i_scanning);
}

void MainWindow::OnOptionsTabSelectionChanged(int i_index)
{
    // Focus in the list brings up the shared_folders actions.
    if (i_index != -1 && mp_ui->optionsTabWidget->tabText(i_index) == QStringLiteral("File Sharing"))
        mp_ui->sharedFoldersList->setFocus(Qt::OtherFocusReason);
}

QTreeWidgetItem* MainWindow::SharedFolderRow(std::string const& i_key) const
{
    QByteArray const l_key = QByteArray::fromStdString(i_key);
    QTreeWidget* lp_list = mp_ui->sharedFoldersList;
    for (int l_index = 0; l_index < lp_list->topLevelItemCount(); ++l_index)
        if (QTreeWidgetItem* lp_row = lp_list->topLevelItem(l_index); lp_row->data(0, Qt::UserRole).toByteArray() == l_key)
            return lp_row;
    return nullptr;
}

void MainWindow::OnSharedFolderAdded(Item* ip_folder)
{
    std::string const l_key = ip_folder->AsString();
    auto* lp_row = new QTreeWidgetItem(mp_ui->sharedFoldersList, QStringList{QString::fromUtf8(l_key)});
    // The key itself, not its text: a path that is not valid UTF-8 does not survive the trip
    // through a QString, and the row must still name its folder.
    lp_row->setData(0, Qt::UserRole, QByteArray::fromStdString(l_key));
}

void MainWindow::OnSharedFolderRemoved(Item* ip_folder)
{
    delete SharedFolderRow(ip_folder->AsString());
}

void MainWindow::OnSharedFolderChange(ConnectionInfo i_info)
{
    std::string const l_other = ItemPtr(i_info.m_to)->GetType()->GetName();
    if (l_other != "shared_public" && l_other != "shared_userlist" && l_other != "user_list_group")
        return;
    ItemPtr const l_folder(i_info.m_from);
    QTreeWidgetItem* lp_row = SharedFolderRow(l_folder.AsString());
    if (!lp_row)
        return;
    QString l_text;
    if (l_folder.IsConnected("shared_public"))
        l_text = QStringLiteral("Everyone");
    else if (l_folder.IsConnected("shared_userlist"))
        l_text = QStringLiteral("User List");
    else
    {
        QStringList l_groups;
        for (Item* lp_group : l_folder.GetItems("user_list_group").SortAlphabetic(true))
            l_groups << QString::fromUtf8(lp_group->AsString());
        l_text = l_groups.join(QStringLiteral(", "));
    }
    lp_row->setText(1, l_text);
}

void MainWindow::UnshareSelectedFolders()
{
    // The keys first: each removal deletes its row. The look-up only finds: a folder that is
    // gone already is not made again, which would start a walk.
    std::vector<std::string> l_keys;
    for (QTreeWidgetItem* lp_row : mp_ui->sharedFoldersList->selectedItems())
        l_keys.push_back(lp_row->data(0, Qt::UserRole).toByteArray().toStdString());
    for (std::string const& l_key : l_keys)
    {
        if (ItemPtr const l_folder = d.GetType("shared_folder")->HasItem(l_key))
            l_folder.Remove();
        // Each folder gets its own sweep, which takes its files with it.
        d.RemoveDisconnectedItems();
    }
}

void MainWindow::ConnectRescanDialog()
{
    auto const l_connect = [this]
    { connect(sharedFoldersManager, &SharedFoldersManager::SharedFilesRescanned, this, &MainWindow::OnSharedFilesRescanned); };
    // The start-up rescan walks beside the event loop and ends after start-up; its counts are
    // no news to the user, so the dialog listens from the next rescan on.
    if (sharedFoldersManager->IsScanning())
        connect(sharedFoldersManager, &SharedFoldersManager::SharedFilesRescanned, this, l_connect, Qt::SingleShotConnection);
    else
        l_connect();
}

void MainWindow::OnSharedFilesRescanned(int i_filesAdded, int i_filesRemoved)
{
    auto* lp_dialog = new SharedFilesRescannedDialog(this);
    lp_dialog->Append(QStringLiteral("%1 files added.").arg(i_filesAdded));
    lp_dialog->Append(QStringLiteral("%1 files removed.").arg(i_filesRemoved));
    lp_dialog->setWindowTitle(QStringLiteral("Shared Files Rescanned"));
    lp_dialog->show();
}
