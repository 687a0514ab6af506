#pragma once

#include <string>

class QString;
class QWidget;

// What the forms may ask of the main window. The forms are built below the application, so
// they reach the window through this interface, which the main window implements, and never
// through its class.
class FormHost
{
public:
    // The window that dialogs opened from a form belong to, so that they stand over it and go
    // with it.
    virtual QWidget* DialogParent() = 0;
    // Brings the private chat with the user into view, making it if needed.
    virtual void OpenChatForm(std::string const& i_user) = 0;
    // A passing line in the window's status bar.
    virtual void ShowStatusMessage(QString const& i_text) = 0;

protected:
    ~FormHost() = default;
};

// Set by the main window while it lives; null otherwise.
extern FormHost* gp_formHost;
