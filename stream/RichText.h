#pragma once

#include <QString>

// The two filters of the chat views, applied as EscapeHTML first and ConvertLinks after.

// Web addresses (http and https) become links; a trailing "." or "," stays outside the link.
QString ConvertLinks(QString i_text);

// "&", "<" and ">" become entities, "&" first so that the entities added are left alone.
QString EscapeHTML(QString i_text);
