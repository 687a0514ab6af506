// The window on a dark desktop palette: the fixed colours of transfer rows and chat lines stay
// readable, and on a light palette they stay as they are.
#include "FormsFixture.h"
#include "forms/ChatForm.h"
#include "forms/TransferFigures.h"
#include "shell/PaletteColors.h"

namespace
{
QPalette WithBase(QColor const& i_base, QColor const& i_text)
{
    QPalette l_palette;
    l_palette.setColor(QPalette::Base, i_base);
    l_palette.setColor(QPalette::Text, i_text);
    return l_palette;
}

// Every colour a transfer row or a chat line may take.
std::vector<QColor> FixedColours()
{
    std::vector<QColor> l_colours;
    for (char const* lp_status : {"complete", "downloading", "uploading", "connecting", "queued", "denied", "aborted", "local error",
                                  "requesting", "waiting for offset"})
        l_colours.push_back(TransferFigures::StatusColor(lp_status));
    l_colours.push_back(QColor(QStringLiteral("blue")));
    l_colours.push_back(QColor(QStringLiteral("green")));
    return l_colours;
}
} // namespace

TEST(Palette, FixedColoursReadOnDarkBasesAndStayOnLightOnes)
{
    for (QColor const l_base : {QColor(0, 0, 0), QColor(0x1e, 0x1e, 0x1e), QColor(0x2b, 0x2b, 0x2b), QColor(0x3c, 0x3f, 0x41)})
    {
        QPalette const l_dark = WithBase(l_base, Qt::white);
        ASSERT_TRUE(PaletteColors::IsDark(l_dark));
        for (QColor const& l_colour : FixedColours())
            EXPECT_GE(PaletteColors::Contrast(PaletteColors::Readable(l_colour, l_dark), l_base), 4.5)
                << l_colour.name().toStdString() << " on " << l_base.name().toStdString();
    }
    QPalette const l_light = WithBase(Qt::white, Qt::black);
    EXPECT_FALSE(PaletteColors::IsDark(l_light));
    for (QColor const& l_colour : FixedColours())
        EXPECT_EQ(PaletteColors::Readable(l_colour, l_light), l_colour);
}

TEST_F(FormsTest, AChatOnADarkPaletteShowsItsNamesInAReadableBlue)
{
    auto* lp_form = new ChatForm("ann", mp_window->Widgets()->chatTabControl);
    auto* lp_view = lp_form->findChild<QTextBrowser*>(QStringLiteral("chatView"));
    lp_view->setPalette(WithBase(QColor(0x2b, 0x2b, 0x2b), Qt::white));
    lp_form->AddChat("<font color=\"blue\">hello</font>");
    QString const l_html = lp_view->toHtml();
    QString const l_readable = PaletteColors::Readable(QColor(QStringLiteral("blue")), lp_view->palette()).name();
    EXPECT_TRUE(l_html.contains(l_readable)) << l_html.toStdString();
    EXPECT_FALSE(l_html.contains(QStringLiteral("#0000ff"))) << l_html.toStdString();
    // What the peer wrote stays text, however it looks.
    EXPECT_TRUE(lp_view->toPlainText().contains(QStringLiteral("<font color=\"blue\">hello</font>")));
    delete lp_form;
}
