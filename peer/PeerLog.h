#pragma once

#include <QDateTime>
#include <QString>

#include <string>

#include "store/ItemPtr.h"
#include "store/Log.h"

// Shared by the parts of the peer messenger: its log area, and the time text of its items.
namespace PeerText
{
inline QString const& Area()
{
    static QString const s_area = QStringLiteral("Peer Messenger");
    return s_area;
}

inline void Line(int i_level, QString const& i_text, ItemPtr i_item = ItemPtr())
{
    Log(Area(), i_level, i_text, i_item);
}

inline QString Q(std::string const& i_text)
{
    return QString::fromStdString(i_text);
}

// Item times have a resolution of one second, so the text is made once per second.
inline std::string const& Now()
{
    static qint64 s_second = -1;
    static std::string s_text;
    qint64 const l_second = QDateTime::currentSecsSinceEpoch();
    if (l_second != s_second)
    {
        s_second = l_second;
        s_text = QDateTime::currentDateTime().toString(Qt::TextDate).toStdString();
    }
    return s_text;
}
} // namespace PeerText
