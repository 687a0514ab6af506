#include "shell/PaletteColors.h"

#include <cmath>

namespace
{
// The contrast of body text that reads well: what a colour is lightened to on a dark base.
constexpr double c_readableContrast = 4.5;

double Luminance(QColor const& i_color)
{
    auto l_channel = [](double i_value) { return i_value <= 0.03928 ? i_value / 12.92 : std::pow((i_value + 0.055) / 1.055, 2.4); };
    return 0.2126 * l_channel(i_color.redF()) + 0.7152 * l_channel(i_color.greenF()) + 0.0722 * l_channel(i_color.blueF());
}
} // namespace

bool PaletteColors::IsDark(QPalette const& i_palette)
{
    return i_palette.color(QPalette::Base).lightness() < 128;
}

QColor PaletteColors::Readable(QColor const& i_color, QPalette const& i_palette)
{
    if (!IsDark(i_palette) || !i_color.isValid())
        return i_color;
    QColor const l_base = i_palette.color(QPalette::Base);
    QColor const l_hsl = i_color.toHsl();
    // Hues differ in how light they look at one lightness: blue needs far more than green.
    for (int l_lightness = l_hsl.lightness(); l_lightness < 255; l_lightness += 5)
    {
        QColor const l_candidate = QColor::fromHsl(l_hsl.hslHue(), l_hsl.hslSaturation(), l_lightness);
        if (Contrast(l_candidate, l_base) >= c_readableContrast)
            return l_candidate;
    }
    return QColor::fromHsl(l_hsl.hslHue(), l_hsl.hslSaturation(), 255);
}

QString PaletteColors::ReadableHtml(QString const& i_html, QPalette const& i_palette)
{
    if (!IsDark(i_palette))
        return i_html;
    QString l_html = i_html;
    // Only the line's own markup can hold these: what a peer wrote is escaped before.
    for (char const* lp_name : {"blue", "green"})
    {
        QString const l_from = QStringLiteral("<font color=\"%1\">").arg(QLatin1String(lp_name));
        QString const l_to = QStringLiteral("<font color=\"%1\">").arg(Readable(QColor(QLatin1String(lp_name)), i_palette).name());
        l_html.replace(l_from, l_to);
    }
    return l_html;
}

double PaletteColors::Contrast(QColor const& i_first, QColor const& i_second)
{
    double const l_first = Luminance(i_first), l_second = Luminance(i_second);
    return (std::max(l_first, l_second) + 0.05) / (std::min(l_first, l_second) + 0.05);
}
