#pragma once

// Root of all graph listeners' handlers. A handler is marked removed when its listener goes
// away; it is then never called again and is destroyed by its event once no walk can reach it.
class EventHandlerRoot
{
public:
    virtual ~EventHandlerRoot() = default;
    bool m_removed = false;
};

template <class Arg>
class EventHandlerBase : public EventHandlerRoot
{
public:
    virtual void Handle(Arg i_arg) = 0;
};

template <class Class, class Arg>
class EventHandler : public EventHandlerBase<Arg>
{
public:
    using Method = void (Class::*)(Arg);

    EventHandler(Class* ip_object, Method i_method) : mp_object(ip_object), m_method(i_method) {}

    void Handle(Arg i_arg) override { (mp_object->*m_method)(i_arg); }

private:
    Class* mp_object;
    Method m_method;
};
