#pragma once

#include <QWidget>
#include <memory>
#include <string>

namespace Ui
{
class ChatForm;
}

// One private conversation, on its own tab of the Chat page. The graph ties the form to its
// user through a user_chat_widget item keyed by the form's address.
class ChatForm : public QWidget
{
    Q_OBJECT
public:
    explicit ChatForm(std::string i_user, QWidget* ip_parent = nullptr);
    ~ChatForm() override;

    std::string const& User() const { return m_user; }
    // Unties the form from its user, so that the next message makes a new form.
    void Detach();
    void AddChat(std::string const& i_chat);

protected:
    void showEvent(QShowEvent* ip_event) override;

private slots:
    void OnEnter();

private:
    // Appends a line, its colours made readable on the view's palette.
    void Append(QString const& i_html);

    std::string m_user;
    std::unique_ptr<Ui::ChatForm> mp_ui;
};
