#pragma once

#include <QFile>
#include <QPointer>
#include <QTcpSocket>
#include <QThread>

#include "store/Data.h"
#include "store/ItemPtr.h"
#include "transfers/TransferSupport.h"

// The names under which one side of the queue keeps a running transfer's parts.
struct TransferPartTypes
{
    char const* mp_thread;
    char const* mp_file;
    char const* mp_socket;
    char const* mp_position;
};

// Stops a transfer's thread and closes its file and socket, in that order, and takes its
// position and speed off the entry; their values are freed by the queue's removal handlers.
// With i_reset the connection is reset instead of closed (see ResetConnection).
template <class Thread>
void TakeDownTransferParts(ItemPtr i_entry, TransferPartTypes const& i_types, bool i_reset = false)
{
    if (ItemPtr const l_thread = i_entry.HasItem(i_types.mp_thread))
    {
        auto* lp_thread = l_thread.AsPointer<Thread>();
        l_thread.Remove();
        lp_thread->SignalExit();
        lp_thread->wait();
        lp_thread->deleteLater();
    }
    if (ItemPtr const l_file = i_entry.HasItem(i_types.mp_file))
    {
        auto* lp_file = l_file.AsPointer<QFile>();
        l_file.Remove();
        lp_file->close();
        delete lp_file;
    }
    if (ItemPtr const l_socket = i_entry.HasItem(i_types.mp_socket))
    {
        auto* lp_socket = l_socket.AsPointer<QTcpSocket>();
        l_socket.Remove();
        QObject::disconnect(lp_socket, nullptr, nullptr, nullptr);
        if (i_reset)
            ResetConnection(*lp_socket);
        lp_socket->close();
        lp_socket->deleteLater();
    }
    for (char const* lp_type : {i_types.mp_position, "bytes_per_second"})
        if (ItemPtr const l_item = i_entry.HasItem(lp_type))
            l_item.Remove();
}

// Moves the socket to the thread and starts it on the next turn of the event loop: a socket may
// be handed over from within one of its own signals, whose caller still touches it afterwards.
// A thread taken down meanwhile, whose item of i_threadType is gone, is not started.
template <class Thread>
void StartOnNextTurn(QObject* ip_context, Thread* ip_thread, QTcpSocket* ip_socket, char const* i_threadType)
{
    QPointer<Thread> const l_thread(ip_thread);
    QMetaObject::invokeMethod(
        ip_context,
        [l_thread, ip_socket, i_threadType]
        {
            if (!l_thread || !d.GetType(i_threadType)->HasItem(Value(l_thread.data())))
                return;
            ip_socket->moveToThread(l_thread);
            l_thread->start();
        },
        Qt::QueuedConnection);
}
