// Build-time tool: writes a flag image as 16 x 11 pixels. A few flags of the system's set have
// other sizes (a square flag, a pennant); they are scaled to fit, keeping their proportions,
// and centred on a transparent field, so that every flag in a row lines up.
#include <QImage>
#include <QPainter>

#include <cstdio>

int main(int argc, char* argv[])
{
    if (argc != 3)
    {
        std::fprintf(stderr, "usage: tw_flagfit <flag.png> <out.png>\n");
        return 2;
    }
    QImage const l_flag(QString::fromLocal8Bit(argv[1]));
    if (l_flag.isNull())
    {
        std::fprintf(stderr, "tw_flagfit: cannot read %s\n", argv[1]);
        return 1;
    }
    QSize const l_size(16, 11);
    QImage const l_scaled = l_flag.scaled(l_size, Qt::KeepAspectRatio, Qt::SmoothTransformation);
    QImage l_fitted(l_size, QImage::Format_ARGB32);
    l_fitted.fill(Qt::transparent);
    QPainter l_painter(&l_fitted);
    l_painter.drawImage((l_size.width() - l_scaled.width()) / 2, (l_size.height() - l_scaled.height()) / 2, l_scaled);
    l_painter.end();
    return l_fitted.save(QString::fromLocal8Bit(argv[2]), "PNG") ? 0 : 1;
}
