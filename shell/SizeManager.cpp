#include "shell/SizeManager.h"

#include <QGuiApplication>
#include <QHeaderView>
#include <QScreen>
#include <QSplitter>
#include <QTreeWidget>

#include <algorithm>
#include <charconv>
#include <map>

#include "shell/ResizableWindow.h"
#include "store/Data.h"
#include "store/DataSaver.h"

SizeManager* sizeManager = nullptr;

namespace
{
// Arguments in the reading of the schema: what each left item holds, then what each right holds.
void Relate(char const* i_left, char const* i_right, OneOrMany i_leftHolds, OneOrMany i_rightHolds)
{
    d.GetType(i_left)->RelateToType(d.GetType(i_right), i_rightHolds, i_leftHolds, false);
}

void DeclareTypes()
{
    for (char const* lp_type : {"sizer_window", "sizer_window_widget", "sizer_tree", "sizer_tree_widget", "sizer_splitter",
                                "sizer_splitter_widget"})
        d.NewType(lp_type, true, false, true);
    for (char const* lp_type : {"sizer_x", "sizer_y", "sizer_width", "sizer_height", "sizer_size", "sizer_tree_column_number",
                                "sizer_splitter_index_number"})
        d.NewType(lp_type, false, false, true);
    d.NewType("sizer_tree_column", false, true, true);
    d.NewType("sizer_splitter_index", false, true, true);

    Relate("sizer_window", "sizer_window_widget", One, One);
    for (char const* lp_type : {"sizer_x", "sizer_y", "sizer_width", "sizer_height"})
        Relate("sizer_window", lp_type, One, Many);
    Relate("sizer_tree", "sizer_tree_widget", Many, One);
    for (char const* lp_type : {"sizer_tree", "sizer_tree_column_number", "sizer_size"})
        Relate("sizer_tree_column", lp_type, One, Many);
    Relate("sizer_splitter", "sizer_splitter_widget", Many, One);
    for (char const* lp_type : {"sizer_splitter", "sizer_splitter_index_number", "sizer_size"})
        Relate("sizer_splitter_index", lp_type, One, Many);

    for (char const* lp_type : {"sizer_window", "sizer_x", "sizer_y", "sizer_width", "sizer_height", "sizer_size", "sizer_tree",
                                "sizer_tree_column", "sizer_tree_column_number", "sizer_splitter", "sizer_splitter_index",
                                "sizer_splitter_index_number"})
        dataSaver->m_savedTypes.insert(lp_type);
}

Value NameValue(QString const& i_name)
{
    return Value(i_name.toLatin1().toStdString());
}

// The sections that are stored: all but a last one that stretches to fill the view.
int StoredSections(QHeaderView const* ip_header)
{
    int const l_count = ip_header->count();
    return ip_header->stretchLastSection() ? std::max(0, l_count - 1) : l_count;
}

// The readable entries of a name, by their index; damaged ones are left out.
std::map<int, int> StoredEntries(ItemPtr i_owner, char const* i_entryType, char const* i_numberType,
                                 std::optional<int> (*i_read)(ItemPtr, char const*))
{
    std::map<int, int> l_entries;
    for (Item* lp_entry : i_owner.GetItems(i_entryType))
    {
        std::optional<int> const l_index = i_read(lp_entry, i_numberType);
        std::optional<int> const l_size = i_read(lp_entry, "sizer_size");
        if (l_index && l_size)
            l_entries.emplace(*l_index, *l_size);
    }
    return l_entries;
}
} // namespace

SizeManager::SizeManager(QObject* ip_parent) : QObject(ip_parent)
{
    sizeManager = this;
    DeclareTypes();
}

SizeManager::~SizeManager()
{
    if (sizeManager == this)
        sizeManager = nullptr;
}

std::optional<int> SizeManager::StoredNumber(ItemPtr i_holder, char const* i_type)
{
    ItemPtr const l_item = i_holder.HasItem(i_type);
    if (!l_item)
        return std::nullopt;
    std::string_view const l_text = l_item.Get()->AsView();
    int l_value = 0;
    auto const [lp_end, l_error] = std::from_chars(l_text.data(), l_text.data() + l_text.size(), l_value);
    if (l_error != std::errc() || lp_end != l_text.data() + l_text.size() || l_value < 0 || l_value > s_largest)
        return std::nullopt;
    return l_value;
}

void SizeManager::StoreNumber(ItemPtr i_holder, char const* i_type, int i_value)
{
    ItemPtr const l_old = i_holder.HasItem(i_type);
    ItemPtr const l_new = d.GetType(i_type)->GetItem(Value(i_value));
    if (l_old == l_new)
        return;
    i_holder += l_new;
    if (l_old && l_old.Get()->IsDisconnectedFromAll())
        l_old.Remove();
}

ItemPtr SizeManager::Entry(ItemPtr i_owner, char const* i_entryType, char const* i_numberType, int i_index)
{
    if (ItemPtr const l_number = d.GetType(i_numberType)->HasItem(Value(i_index)))
        if (ItemPtr const l_entry = d.GetItem(i_owner, l_number, i_entryType))
            return l_entry;
    ItemPtr const l_entry = i_owner.NewItem(i_entryType);
    l_entry += d.GetType(i_numberType)->GetItem(Value(i_index));
    return l_entry;
}

// ---- the main window

void SizeManager::RegisterResizableWindow(QString const& i_name, ResizableWindow* ip_window)
{
    ItemPtr l_window = d.GetType("sizer_window")->HasItem(NameValue(i_name));
    if (l_window)
    {
        std::optional<int> const l_x = StoredNumber(l_window, "sizer_x"), l_y = StoredNumber(l_window, "sizer_y");
        std::optional<int> const l_width = StoredNumber(l_window, "sizer_width"), l_height = StoredNumber(l_window, "sizer_height");
        if (l_width && l_height && *l_width > 0 && *l_height > 0)
            ip_window->SetSize(*l_width, *l_height);
        if (l_x && l_y)
        {
            // A place on a screen that is gone, or off every screen, is moved onto the primary one.
            QPoint l_place(*l_x, *l_y);
            QScreen* lp_primary = QGuiApplication::primaryScreen();
            if (lp_primary && !QGuiApplication::screenAt(l_place + QPoint(20, 20)))
                l_place = lp_primary->availableGeometry().topLeft();
            ip_window->SetPosition(l_place.x(), l_place.y());
        }
    }
    else
    {
        l_window = d.GetType("sizer_window")->GetItem(NameValue(i_name));
        StoreNumber(l_window, "sizer_x", ip_window->GetX());
        StoreNumber(l_window, "sizer_y", ip_window->GetY());
        StoreNumber(l_window, "sizer_width", ip_window->GetWidth());
        StoreNumber(l_window, "sizer_height", ip_window->GetHeight());
    }
    l_window += d.GetType("sizer_window_widget")->GetItem(Value(static_cast<QObject*>(ip_window)));
    connect(ip_window, &ResizableWindow::WindowMoved, this, &SizeManager::OnWindowMoved);
    connect(ip_window, &ResizableWindow::WindowResized, this, &SizeManager::OnWindowResized);
}

void SizeManager::StorePair(char const* i_first, int i_firstValue, char const* i_second, int i_secondValue)
{
    ItemPtr const l_widget = d.GetType("sizer_window_widget")->HasItem(Value(sender()));
    ItemPtr const l_window = l_widget ? l_widget.HasItem("sizer_window") : ItemPtr();
    if (!l_window)
        return;
    StoreNumber(l_window, i_first, i_firstValue);
    StoreNumber(l_window, i_second, i_secondValue);
}

void SizeManager::OnWindowMoved(int i_x, int i_y)
{
    StorePair("sizer_x", i_x, "sizer_y", i_y);
}

void SizeManager::OnWindowResized(int i_width, int i_height)
{
    StorePair("sizer_width", i_width, "sizer_height", i_height);
}

// ---- trees

void SizeManager::RegisterTreeWidget(QString const& i_name, QTreeWidget* ip_tree)
{
    QHeaderView* lp_header = ip_tree->header();
    ItemPtr l_tree = d.GetType("sizer_tree")->HasItem(NameValue(i_name));
    if (l_tree)
    {
        for (auto const& [l_index, l_size] : StoredEntries(l_tree, "sizer_tree_column", "sizer_tree_column_number", &StoredNumber))
            if (l_index < StoredSections(lp_header))
                lp_header->resizeSection(l_index, l_size);
    }
    else
    {
        l_tree = d.GetType("sizer_tree")->GetItem(NameValue(i_name));
        for (int l_index = 0; l_index < StoredSections(lp_header); ++l_index)
            StoreNumber(Entry(l_tree, "sizer_tree_column", "sizer_tree_column_number", l_index), "sizer_size",
                        lp_header->sectionSize(l_index));
    }
    l_tree += d.GetType("sizer_tree_widget")->GetItem(Value(static_cast<QObject*>(ip_tree)));
    connect(lp_header, &QHeaderView::sectionResized, this, &SizeManager::OnTreeColumnResizedMoved);
    connect(ip_tree, &QObject::destroyed, this, &SizeManager::OnTreeDestroyed);
}

void SizeManager::OnTreeColumnResizedMoved(int, int, int)
{
    if (m_copying)
        return;
    auto* lp_header = qobject_cast<QHeaderView*>(sender());
    QObject* lp_tree = lp_header ? lp_header->parent() : nullptr;
    ItemPtr const l_widget = lp_tree ? d.GetType("sizer_tree_widget")->HasItem(Value(lp_tree)) : ItemPtr();
    ItemPtr const l_tree = l_widget ? l_widget.HasItem("sizer_tree") : ItemPtr();
    if (!l_tree)
        return;
    m_copying = true;
    ItemSet const l_siblings = l_tree.GetItems("sizer_tree_widget");
    for (int l_index = 0; l_index < StoredSections(lp_header); ++l_index)
    {
        int const l_size = lp_header->sectionSize(l_index);
        StoreNumber(Entry(l_tree, "sizer_tree_column", "sizer_tree_column_number", l_index), "sizer_size", l_size);
        for (Item* lp_sibling : l_siblings)
            if (lp_sibling != l_widget.Get())
                if (QHeaderView* lp_other = lp_sibling->AsPointer<QTreeWidget>()->header(); l_index < lp_other->count())
                    lp_other->resizeSection(l_index, l_size);
    }
    m_copying = false;
}

void SizeManager::OnTreeDestroyed(QObject* ip_tree)
{
    // The widget is half gone: it is found by its address alone.
    if (ItemPtr const l_widget = d.GetType("sizer_tree_widget")->HasItem(Value(ip_tree)))
        l_widget.Remove();
}

// ---- splitters

void SizeManager::RegisterSplitter(QString const& i_name, QSplitter* ip_splitter, QList<int> i_sizes)
{
    ItemPtr l_splitter = d.GetType("sizer_splitter")->HasItem(NameValue(i_name));
    if (l_splitter)
    {
        std::map<int, int> const l_stored =
            StoredEntries(l_splitter, "sizer_splitter_index", "sizer_splitter_index_number", &StoredNumber);
        // Only a whole list for the panes there are, and one that leaves some room, is given back.
        QList<int> l_sizes;
        long long l_sum = 0;
        for (int l_index = 0; l_index < ip_splitter->count(); ++l_index)
        {
            auto const l_found = l_stored.find(l_index);
            if (l_found == l_stored.end())
                break;
            l_sizes << l_found->second;
            l_sum += l_found->second;
        }
        if (l_sizes.size() == ip_splitter->count() && l_sum > 0)
            ip_splitter->setSizes(l_sizes);
    }
    else
    {
        l_splitter = d.GetType("sizer_splitter")->GetItem(NameValue(i_name));
        if (i_sizes.isEmpty())
            i_sizes = ip_splitter->sizes();
        for (int l_index = 0; l_index < i_sizes.size(); ++l_index)
            StoreNumber(Entry(l_splitter, "sizer_splitter_index", "sizer_splitter_index_number", l_index), "sizer_size",
                        i_sizes.at(l_index));
    }
    l_splitter += d.GetType("sizer_splitter_widget")->GetItem(Value(static_cast<QObject*>(ip_splitter)));
    connect(ip_splitter, &QSplitter::splitterMoved, this, &SizeManager::OnSplitterMoved);
    connect(ip_splitter, &QObject::destroyed, this, &SizeManager::OnSplitterDestroyed);
}

void SizeManager::OnSplitterMoved(int, int)
{
    if (m_copying)
        return;
    auto* lp_splitter = qobject_cast<QSplitter*>(sender());
    ItemPtr const l_widget = lp_splitter ? d.GetType("sizer_splitter_widget")->HasItem(Value(static_cast<QObject*>(lp_splitter))) : ItemPtr();
    ItemPtr const l_splitter = l_widget ? l_widget.HasItem("sizer_splitter") : ItemPtr();
    if (!l_splitter)
        return;
    QList<int> const l_sizes = lp_splitter->sizes();
    for (int l_index = 0; l_index < l_sizes.size(); ++l_index)
        StoreNumber(Entry(l_splitter, "sizer_splitter_index", "sizer_splitter_index_number", l_index), "sizer_size", l_sizes.at(l_index));
    m_copying = true;
    for (Item* lp_sibling : l_splitter.GetItems("sizer_splitter_widget"))
        if (lp_sibling != l_widget.Get())
            lp_sibling->AsPointer<QSplitter>()->setSizes(l_sizes);
    m_copying = false;
}

void SizeManager::OnSplitterDestroyed(QObject* ip_splitter)
{
    if (ItemPtr const l_widget = d.GetType("sizer_splitter_widget")->HasItem(Value(ip_splitter)))
        l_widget.Remove();
}
