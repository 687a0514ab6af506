#include "transfers/TransferSupport.h"

#include <QTcpSocket>

#include <charconv>
#include <sys/socket.h>

#include "store/Data.h"
#include "store/Log.h"

void TransferLog(int i_level, QString const& i_text, ItemPtr i_user)
{
    Log(QStringLiteral("Transfer Queue"), i_level, i_text, i_user);
}

void ReplaceValue(ItemPtr i_holder, char const* i_typeName, Value const& i_value)
{
    ItemPtr const l_old = i_holder.HasItem(i_typeName);
    ItemPtr const l_new = d.GetType(i_typeName)->GetItem(i_value);
    i_holder += l_new;
    if (l_old && l_old.Get() != l_new.Get() && l_old.IsDisconnectedFromAll())
        l_old.Remove();
}

std::optional<long long> DecimalOf(std::string const& i_text)
{
    if (i_text.empty() || i_text[0] < '0' || i_text[0] > '9')
        return std::nullopt;
    long long l_value = 0;
    auto const [lp_end, l_error] = std::from_chars(i_text.data(), i_text.data() + i_text.size(), l_value);
    if (l_error != std::errc() || lp_end != i_text.data() + i_text.size())
        return std::nullopt;
    return l_value;
}

void ResetConnection(QTcpSocket& io_socket)
{
    // A linger time of zero makes the system drop what it still holds and send a reset.
    linger const l_linger{1, 0};
    if (qintptr const l_descriptor = io_socket.socketDescriptor(); l_descriptor >= 0)
        setsockopt(static_cast<int>(l_descriptor), SOL_SOCKET, SO_LINGER, &l_linger, sizeof l_linger);
    io_socket.abort();
}
