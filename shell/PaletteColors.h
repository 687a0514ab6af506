#pragma once

#include <QColor>
#include <QPalette>
#include <QString>

// The fixed colours of lists and chat lines, made to read on the palette the desktop gives:
// unchanged on a light base, lightened on a dark one with their hue kept.
namespace PaletteColors
{
// Whether text in views stands on a dark base.
bool IsDark(QPalette const& i_palette);
QColor Readable(QColor const& i_color, QPalette const& i_palette);
// A chat line's HTML with its named colours made readable on the palette's base.
QString ReadableHtml(QString const& i_html, QPalette const& i_palette);
// The contrast of two colours, from 1 (none) to 21 (black on white).
double Contrast(QColor const& i_first, QColor const& i_second);
} // namespace PaletteColors
