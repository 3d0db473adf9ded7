#include "simulation/common/message.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <cstdlib>

#include "base/unique_fd.h"

namespace simulation {

namespace {

constexpr size_t kMaxMessage = 131072;

}  // namespace

bool SendWords(int socket, const Words& words) {
    std::string packed;
    for (const std::string& word : words) {
        packed.append(word.c_str(), word.size() + 1);
    }
    return packed.size() <= kMaxMessage &&
           send(socket, packed.data(), packed.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(packed.size());
}

std::optional<Words> ReceiveWords(int socket) {
    std::string packed(kMaxMessage, '\0');
    ssize_t received = 0;
    do {
        received = recv(socket, packed.data(), packed.size(), 0);
    } while (received < 0 && errno == EINTR);
    if (received <= 0) {
        return std::nullopt;
    }
    packed.resize(static_cast<size_t>(received));
    Words words;
    for (size_t start = 0; start < packed.size();) {
        const size_t end = std::min(packed.find('\0', start), packed.size());
        words.push_back(packed.substr(start, end - start));
        start = end + 1;
    }
    return words;
}

bool SendAnswer(int socket, const Answer& answer) {
    return SendWords(socket, {std::to_string(answer.error), answer.text.substr(0, kMaxMessage - 16)});
}

Answer Ask(int socket, const Words& request) {
    if (!SendWords(socket, request)) {
        return {errno, "the appliance does not take the request"};
    }
    const std::optional<Words> words = ReceiveWords(socket);
    if (!words || words->size() != 2) {
        return {EPIPE, "the appliance went down"};
    }
    return {std::atoi((*words)[0].c_str()), (*words)[1]};
}

base::UniqueFd ConnectTo(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    base::UniqueFd connection(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    if (!connection ||
        connect(connection.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address)) {
        return base::UniqueFd();
    }
    return connection;
}

}  // namespace simulation
