#pragma once

class QString;
class QWidget;

// An information box that does not block: it is shown at once and deletes itself when closed.
void ShowInformationBox(QWidget* ip_parent, QString const& i_title, QString const& i_text);
