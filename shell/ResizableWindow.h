#pragma once

#include <QObject>

// A top-level window as the size manager sees it: where it is, how big it is, and the signals
// it gives when the user moves or resizes it.
class ResizableWindow : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;

    virtual int GetX() const = 0;
    virtual int GetY() const = 0;
    virtual int GetWidth() const = 0;
    virtual int GetHeight() const = 0;
    virtual void SetPosition(int i_x, int i_y) = 0;
    virtual void SetSize(int i_width, int i_height) = 0;

signals:
    void WindowMoved(int i_x, int i_y);
    void WindowResized(int i_width, int i_height);
};
