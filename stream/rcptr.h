#pragma once

#include <QtGlobal>

#include <utility>

// A shared pointer with a plain, non-atomic count: cheap, and meant for objects that stay on
// the thread that made them. The last reference destroys the object.
template <class OBJECT>
class rcptr
{
public:
    rcptr() = default;

    explicit rcptr(OBJECT* ip_object) : mp_object(ip_object)
    {
        if (mp_object)
            mp_count = new int(1);
    }

    rcptr(rcptr const& i_other) : mp_object(i_other.mp_object), mp_count(i_other.mp_count)
    {
        if (mp_count)
            ++*mp_count;
    }

    rcptr(rcptr&& i_other) noexcept
        : mp_object(std::exchange(i_other.mp_object, nullptr)),
          mp_count(std::exchange(i_other.mp_count, nullptr))
    {
    }

    rcptr& operator=(rcptr i_other) noexcept
    {
        std::swap(mp_object, i_other.mp_object);
        std::swap(mp_count, i_other.mp_count);
        return *this;
    }

    ~rcptr() { Release(); }

    OBJECT& operator*() const { return *Checked(); }
    OBJECT* operator->() const { return Checked(); }

    OBJECT* get() const { return mp_object; }
    bool IsNull() const { return mp_object == nullptr; }
    explicit operator bool() const { return mp_object != nullptr; }
    int UseCount() const { return mp_count ? *mp_count : 0; }

private:
    // Going on through an empty pointer would be undefined; stop loudly, in release builds too.
    OBJECT* Checked() const
    {
        if (!mp_object) [[unlikely]]
            qFatal("Tidewick: programming error: dereferencing an empty rcptr");
        return mp_object;
    }

    void Release()
    {
        if (mp_count && --*mp_count == 0)
        {
            delete mp_object;
            delete mp_count;
        }
        mp_object = nullptr;
        mp_count = nullptr;
    }

    OBJECT* mp_object = nullptr;
    int* mp_count = nullptr;
};
