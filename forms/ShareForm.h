#pragma once

#include <QStringList>
#include <QWidget>
#include <memory>
#include <string>
#include <vector>

#include "forms/RemoteFile.h"

namespace Ui
{
class ShareForm;
}
class Item;
class QTreeWidgetItem;
class Type;

using ShareDownload = RemoteFile;

// One tab of the Shares page: the folder tree of one user's received share, the files of the
// current folder beside it, and a filter line under both. The tab is tied to its share by a
// `user_share_tab` item keyed by the form's address; each tree row by a node item keyed by the
// row's address.
//
// A share list can nest folders tens of thousands deep, so nothing here walks the tree by
// recursion: rows are kept in building order (each parent ahead of its children) and every
// walk is a loop over that list or over an explicit stack.
class ShareForm : public QWidget
{
    Q_OBJECT
public:
    // Rows deeper than this are built collapsed: the tree view lays out expanded rows by
    // recursion and keeps one tracked index per expanded row, so a hostile depth must not come
    // up expanded.
    static constexpr int s_maxExpandedDepth = 64;

    ShareForm(Item* i_share, QWidget* i_parent);
    ~ShareForm() override;

    std::string const& User() const { return m_user; }
    // The share shown; null once a newer list from the same user has taken its place.
    Item* Share() const { return mp_share; }

    // Drops what the tab put in the graph, its share with it (unless that has gone already),
    // and deletes the form.
    void Delete();
    // Whether the row stays visible under the filter terms. Terms found in a row's name are
    // used up for that row's subtree only; the list given is left as it is.
    bool FilterFolderNode(QTreeWidgetItem* ip_row, QStringList const& i_terms);
    // The files the download action would fetch from this form's own selection: for
    // `download_share_folder` every file of each selected folder, filtered or not, without its
    // subfolders; for `download_share_file` the selected rows of the file list.
    std::vector<ShareDownload> Downloads(std::string const& i_action) const;

    // Called while the share is being removed, when a newer list replaces it: the form lets go
    // of the share without touching it, and asks to be closed once the event is over.
    void OnShareRemoved();

signals:
    // Queued after the share went: the tab should be closed.
    void CloseRequested(ShareForm* ip_form);

public slots:
    void OnCurrentItemChanged(QTreeWidgetItem* ip_current, QTreeWidgetItem* ip_previous);
    void OnFileItemChanged(QTreeWidgetItem* ip_current, QTreeWidgetItem* ip_previous);
    void OnFilterTextChanged(QString i_text);
    // Every open tab hears the tool bar and queues its own selection.
    void OnActionBarTriggered(std::string i_action);

protected:
    void showEvent(QShowEvent* ip_event) override;

private:
    void BuildTree();
    Item* FolderOfRow(QTreeWidgetItem* ip_row) const;
    void ClearFileList();
    // Deletes the tree's rows leaves first, so that no row deletes a subtree by recursion.
    void DeleteFolderRows();
    QStringList FilterTerms() const;

    std::unique_ptr<Ui::ShareForm> mp_ui;
    Item* mp_share;
    std::string m_user;
    Type* mp_folderNodeType;
    Type* mp_fileNodeType;
    std::vector<QTreeWidgetItem*> m_folderRows; // building order: parents ahead of children
};
