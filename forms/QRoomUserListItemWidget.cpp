#include "forms/QRoomUserListItemWidget.h"

#include <QFile>
#include <QRegularExpression>
#include <QHeaderView>
#include <QTreeWidget>

#include "stream/NumberText.h"

QRoomUserListItemWidget::QRoomUserListItemWidget(QString const& i_user, long long i_files, long long i_speed,
                                                 QString const& i_country)
    : m_files(i_files > 0 ? i_files : 0), m_speed(i_speed > 0 ? i_speed : 0), m_country(i_country.toLower())
{
    // Spares the view a question per row each time it lays the list out again.
    setFlags(flags() | Qt::ItemNeverHasChildren);
    setText(UserColumn, i_user);
    setText(FilesColumn, CommafyNumber(m_files));
    if (m_speed > 0)
        setText(SpeedColumn, QString::number(static_cast<double>(m_speed) / 1024.0, 'f', 1));
    // A code without a flag of its own shows no icon rather than a broken one.
    if (QString const l_flag = FlagResource(i_country); !l_flag.isEmpty() && QFile::exists(l_flag))
        setIcon(FlagColumn, QIcon(l_flag));
    setToolTip(FlagColumn, i_country);
}

QString QRoomUserListItemWidget::FlagResource(QString const& i_country)
{
    // Only a plain word can name a flag: anything else from the server never reaches a path.
    static QRegularExpression const s_plainCode(QStringLiteral("^[a-z]{2,16}$"));
    QString const l_code = i_country.toLower();
    if (!s_plainCode.match(l_code).hasMatch())
        return QString();
    return QStringLiteral(":/resources/flags/%1.png").arg(l_code);
}

bool QRoomUserListItemWidget::operator<(QTreeWidgetItem const& i_other) const
{
    QTreeWidget const* lp_tree = treeWidget();
    return LessThan(i_other, lp_tree ? lp_tree->header()->sortIndicatorSection() : UserColumn);
}

bool QRoomUserListItemWidget::LessThan(QTreeWidgetItem const& i_other, int i_column) const
{
    if (auto const* lp_other = dynamic_cast<QRoomUserListItemWidget const*>(&i_other))
    {
        int const l_column = i_column;
        if (l_column == FilesColumn && m_files != lp_other->m_files)
            return m_files < lp_other->m_files;
        if (l_column == SpeedColumn && m_speed != lp_other->m_speed)
            return m_speed < lp_other->m_speed;
        if (l_column == FlagColumn && m_country != lp_other->m_country)
            return m_country < lp_other->m_country;
    }
    return text(UserColumn).compare(i_other.text(UserColumn), Qt::CaseInsensitive) < 0;
}
