#include "tests/simulation/oracle/control_client.h"

#include <csignal>
#include <sys/socket.h>

#include "tests/simulation/kernel/local_socket.h"

namespace sim
{

std::optional<mcastd::ControlReply> ask(Machine &machine, uint16_t port,
                                        const mcastd::ControlRequest &request)
{
    int error = 0;
    const auto connection = connect_local(machine, port, &error);
    const Bytes question = mcastd::encode(request);
    if (connection == nullptr || connection->send(question.data(), question.size()) < 0) {
        return std::nullopt;
    }
    machine.kernel.run_until(machine.kernel.clock.now());
    Bytes bytes(mcastd::CONTROL_REPLY_MAX);
    const ssize_t size = connection->receive(bytes.data(), bytes.size(), 0);
    mcastd::ControlReply reply;
    if (size <= 0 || !decode(std::span(bytes).first(static_cast<size_t>(size)), &reply)) {
        return std::nullopt;
    }
    return reply;
}

std::optional<std::vector<Row>> read_table(Machine &machine, uint16_t port,
                                           const mcastd::ControlSchema &schema)
{
    mcastd::ControlRequest request;
    request.table = schema.number;
    std::vector<Row> rows;
    for (;;) {
        const auto reply = ask(machine, port, request);
        if (!reply) {
            return std::nullopt;
        }
        rows.insert(rows.end(), reply->rows.begin(), reply->rows.end());
        if (reply->status != mcastd::ControlStatus::Done || reply->rows.empty()) {
            return rows;
        }
        request.key.assign(rows.back().begin(),
                           rows.back().begin() + static_cast<ptrdiff_t>(schema.key_size));
    }
}

std::string ask_for_status(Process &process)
{
    process.take_printed();
    process.signal(SIGUSR1);
    process.kernel().run_until(process.kernel().clock.now());
    return process.take_printed();
}

Address address_in(const mcastd::ControlField &field)
{
    const MCAST_ADDR_S &address = field.as_address();
    return address_of(address.family == MCAST_FAMILY_IPV4 ? AF_INET : AF_INET6, address.address);
}

} // namespace sim
