#pragma once

#include <QList>
#include <QObject>
#include <QString>

#include <optional>

#include "store/ItemPtr.h"

class QSplitter;
class QTreeWidget;
class ResizableWindow;

// Keeps the main window's place and size, the splitters' pane sizes and the trees' column
// widths as items of the graph, so that they reach the data file with everything else. Widgets
// register under a name; several live widgets may share one, and a change in one is stored once
// and copied to the others at once.
class SizeManager : public QObject
{
    Q_OBJECT
public:
    // Numbers read back from the data file beyond this, or below 0, are not used.
    static constexpr int s_largest = 100000;

    explicit SizeManager(QObject* ip_parent = nullptr);
    ~SizeManager() override;

    void RegisterResizableWindow(QString const& i_name, ResizableWindow* ip_window);
    void RegisterTreeWidget(QString const& i_name, QTreeWidget* ip_tree);
    // i_sizes are stored at the first registration of the name; empty means the present sizes.
    void RegisterSplitter(QString const& i_name, QSplitter* ip_splitter, QList<int> i_sizes);

private slots:
    void OnWindowMoved(int i_x, int i_y);
    void OnWindowResized(int i_width, int i_height);
    void OnSplitterMoved(int i_position, int i_index);
    void OnSplitterDestroyed(QObject* ip_splitter);
    void OnTreeColumnResizedMoved(int i_index, int i_newSize, int i_oldSize);
    void OnTreeDestroyed(QObject* ip_tree);

private:
    static std::optional<int> StoredNumber(ItemPtr i_holder, char const* i_type);
    // Connects the number and removes the one it replaces once nothing holds that any more.
    static void StoreNumber(ItemPtr i_holder, char const* i_type, int i_value);
    // The entry of a name for one column or pane, made when there is none.
    static ItemPtr Entry(ItemPtr i_owner, char const* i_entryType, char const* i_numberType, int i_index);
    void StorePair(char const* i_first, int i_firstValue, char const* i_second, int i_secondValue);

    bool m_copying = false;
};

extern SizeManager* sizeManager;
