#pragma once

#ifdef TIDEWICK_BELOW_APP
#error "The shell library and the forms sit below the main window: reach it through shell/FormHost.h."
#endif

#include <QByteArray>
#include <QHash>
#include <QMainWindow>
#include <ctime>
#include <memory>
#include <string>

#include "shell/FormHost.h"
#include "shell/ResizableWindow.h"
#include "store/DataHandler.h"

namespace Ui
{
class MainWindow;
}
class ChatForm;
class DataDialog;
class DesktopIntegration;
class Item;
class QLabel;
class QProgressBar;
class QTreeWidgetItem;
class RoomForm;
class SearchForm;
class TransfersForm;
class Server;
class UserListForm;

// The application shell: builds every manager in a fixed order, loads the data file and
// starts the connection; its destruction saves and tears everything down.
class MainWindow : public QMainWindow, public DataHandler, public FormHost
{
    Q_OBJECT
public:
    explicit MainWindow(QWidget* ip_parent = nullptr);
    ~MainWindow() override;

    static std::string DataFileName();
    Ui::MainWindow* Widgets() { return mp_ui.get(); }
    UserListForm* UserList() { return mp_userListForm; }
    SearchForm* Search() { return mp_searchForm; }
    TransfersForm* Transfers() { return mp_transfersForm; }

    QWidget* DialogParent() override { return this; }

    // Private chat: one form per user on the Chat page, found or made on demand.
    ChatForm* GetChatForm(std::string const& i_user);
    void OpenChatForm(std::string const& i_user) override;
    void ShowStatusMessage(QString const& i_text) override;

public slots:
    void OnSaveTimer();
    // Ends the program as closing the window does where there is no tray: from the tray's
    // menu, and on SIGTERM and SIGINT.
    void Quit();

public:
    // The window as the size manager sees it.
    class SizeProxy : public ResizableWindow
    {
    public:
        int GetX() const override;
        int GetY() const override;
        int GetWidth() const override;
        int GetHeight() const override;
        void SetPosition(int i_x, int i_y) override;
        void SetSize(int i_width, int i_height) override;
    };

protected:
    void closeEvent(QCloseEvent* ip_event) override;
    // Both tell the size manager, unless the window is maximised: the normal geometry is kept.
    void resizeEvent(QResizeEvent* ip_event) override;
    void moveEvent(QMoveEvent* ip_event) override;

private slots:
    void OnConnectMenuOptionClicked();
    void OnDisconnectMenuOptionClicked();
    void OnToolBarActionTriggered(std::string i_action);
    void OnUPnPCheckboxToggled(bool i_checked);
    void OnConnecting();
    void OnConnected();
    void OnDisconnected();
    void OnConnectionFailed(std::string const& i_reason);
    void OnMainWindowTabChanged(int i_index);
    void OnPrivateChat(std::string const& i_user, std::string const& i_chat, time_t i_time, bool i_spontaneous);
    void OnChatTabClosed(int i_index);
    void OnChatTabChanged(int i_index);
    void OnRoomListItemDoubleClicked(QTreeWidgetItem* ip_item, int i_column);
    void OnRoomTabChanged(int i_index);
    void OnRoomTabContextMenuRequested(QPoint const& i_point);
    void OnListeningChanged();
    void OnOptionsTabSelectionChanged(int i_index);
    void OnSharedFilesRescanned(int i_filesAdded, int i_filesRemoved);
    void OnShareScanProgress(int i_files, int i_folders, bool i_scanning);
    void OnShowData();

private:
    void DeclareActionSets();
    void DeclareSettingsTypes();
    void SetUpPrivateChat();
    void SetUpPeerMessenger();
    void ConnectRescanDialog();
    void OnSetDownloadFolder();
    void OnCreateRoom();
    void SetConnectionIcon(char const* i_icon);
    void ShowNoUsernameBox();
    void ShowWelcomeDialog();
    void OnUsernameChanged(Item* ip_item);
    void OnNewListeningPortChanged(Item* ip_item);

    // The Rooms tab: the list of rooms and one tab per entered room.
    void SetUpRooms();
    void OnRoomUserCountAdded(ConnectionInfo& i_info);
    void OnEnteredRoom(ConnectionInfo& i_info);
    RoomForm* OpenRoomForm(std::string const& i_room) const;
    void EnterRoomOfRow(QTreeWidgetItem* ip_row);

    // The File Sharing options: one row per shared folder, which keeps the folder's key bytes,
    // and the progress of the walk under the list and in the status bar.
    void CreateShareManagers();
    void SetUpFileSharing();
    void OnSharedFolderAdded(Item* ip_folder);
    void OnSharedFolderRemoved(Item* ip_folder);
    void OnSharedFolderChange(ConnectionInfo i_info);
    QTreeWidgetItem* SharedFolderRow(std::string const& i_key) const;
    void UnshareSelectedFolders();

    std::unique_ptr<Ui::MainWindow> mp_ui;
    SizeProxy m_sizeProxy;
    Server* mp_server = nullptr;
    UserListForm* mp_userListForm = nullptr;
    SearchForm* mp_searchForm = nullptr;
    TransfersForm* mp_transfersForm = nullptr;
    // Room list rows by the exact bytes of the room's name; rows never go away.
    QHash<QByteArray, QTreeWidgetItem*> m_roomRows;
    QLabel* mp_statusShareLabel = nullptr;
    QProgressBar* mp_statusShareBar = nullptr;
    // The data browser while it is open; it deletes itself when closed.
    DataDialog* mp_dataDialog = nullptr;
    DesktopIntegration* mp_desktop = nullptr;
    bool m_quitting = false;
};

extern MainWindow* mainWindow;
