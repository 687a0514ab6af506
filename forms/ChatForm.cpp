#include "forms/ChatForm.h"

#include "forms/ChatLine.h"
#include "server/Server.h"
#include "shell/EventToolBar.h"
#include "shell/PaletteColors.h"
#include "store/Data.h"
#include "store/Settings.h"
#include "ui_ChatForm.h"

namespace
{
ItemPtr WidgetItem(ChatForm* ip_form)
{
    return d.GetType("user_chat_widget")->HasItem(Value(static_cast<QWidget*>(ip_form)));
}
} // namespace

ChatForm::ChatForm(std::string i_user, QWidget* ip_parent)
    : QWidget(ip_parent), m_user(std::move(i_user)), mp_ui(std::make_unique<Ui::ChatForm>())
{
    mp_ui->setupUi(this);
    // Focus given to the form, by a tab change or an event button, lets the user type at once.
    setFocusProxy(mp_ui->chatEdit);
    connect(mp_ui->chatEdit, &QLineEdit::returnPressed, this, &ChatForm::OnEnter);
    ItemPtr const l_item = d.GetType("user_chat_widget")->GetItem(Value(static_cast<QWidget*>(this)));
    l_item.Connect(d.GetType("user")->GetItem(m_user));
}

ChatForm::~ChatForm()
{
    Detach();
}

void ChatForm::Detach()
{
    if (ItemPtr const l_item = WidgetItem(this))
        l_item.Remove();
}

void ChatForm::Append(QString const& i_html)
{
    AppendChatLine(mp_ui->chatView, PaletteColors::ReadableHtml(i_html, mp_ui->chatView->palette()));
}

void ChatForm::AddChat(std::string const& i_chat)
{
    Append(ChatLine(m_user, i_chat));
    if (eventToolBar)
        eventToolBar->AddEvent(QString::fromUtf8(m_user), QStringLiteral(":/icons/chat_icon"), mp_ui->chatEdit);
}

void ChatForm::OnEnter()
{
    QString const l_text = mp_ui->chatEdit->text();
    if (l_text.isEmpty())
        return;
    std::string const l_bytes = l_text.toStdString();
    Append(ChatLine(GetGlobal("username"), l_bytes));
    // Offline the line would go nowhere; the user is told rather than left to wait for a reply.
    if (gp_server && gp_server->IsConnected())
        gp_server->SendPrivateChat(m_user, l_bytes);
    else
        Append(StatusLine(QStringLiteral("Not connected: message not sent.")));
    mp_ui->chatEdit->clear();
}

void ChatForm::showEvent(QShowEvent* ip_event)
{
    QWidget::showEvent(ip_event);
    if (eventToolBar)
        eventToolBar->RemoveEvent(mp_ui->chatEdit);
}
