#pragma once

#include <QStringList>
#include <QWidget>
#include <memory>
#include <vector>

#include "forms/RemoteFile.h"

namespace Ui
{
class SearchResultsForm;
}
class QLineEdit;
class QTreeWidget;
class QTreeWidgetItem;
class SearchResultListItem;

// One results tab: the tree of users, their folders and files, and a filter line under it.
// The tree sorts only when Sort is called, once per message of results.
class SearchResultsForm : public QWidget
{
    Q_OBJECT
public:
    explicit SearchResultsForm(QWidget* ip_parent = nullptr);
    ~SearchResultsForm() override;

    QTreeWidget* searchResults() const;
    QLineEdit* filterEdit() const;

    void SetSortingParamters(int i_column, Qt::SortOrder i_order);
    void Sort();

    // The filter's terms: the text split at blanks.
    static QStringList FilterTerms(QString const& i_text);
    // Every file row against the terms, and its folder and user shown when any file under
    // them passes.
    void ApplyFilter(QStringList const& i_terms);
    // A file row just added: hidden when it fails, showing its folder and user when it passes.
    void FilterNewRow(SearchResultListItem* ip_file, QStringList const& i_terms);

    // What the download actions fetch from the selection: the selected file rows, or every
    // file of each folder selected or holding a selected file, once each, by name ascending.
    std::vector<RemoteFile> SelectedFiles() const;
    std::vector<RemoteFile> SelectedFolders() const;

protected:
    void showEvent(QShowEvent* ip_event) override;

private:
    std::unique_ptr<Ui::SearchResultsForm> mp_ui;
    int m_sortColumn = 1;
    Qt::SortOrder m_sortOrder = Qt::DescendingOrder;
};
