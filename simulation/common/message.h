#pragma once

#include <optional>
#include <string>
#include <vector>

#include "base/unique_fd.h"

namespace simulation {

// A request: a verb and its arguments.
using Words = std::vector<std::string>;

// Where a running appliance takes requests, as seen from inside it.
inline constexpr char kControlSocket[] = "/dev/vemo-appliance";

// What came of a request: an errno (0 done) and a text (a result, or why it failed).
struct Answer {
    int error = 0;
    std::string text;
};

// Sends and receives one request or answer over a SOCK_SEQPACKET socket. Nothing received: the peer is gone.
bool SendWords(int socket, const Words& words);
std::optional<Words> ReceiveWords(int socket);
bool SendAnswer(int socket, const Answer& answer);

// Sends a request over a connected socket and waits for the answer; EPIPE when the peer is gone.
Answer Ask(int socket, const Words& request);

// A connection to the appliance whose control socket lies at `path`; empty, with errno, when there is none.
base::UniqueFd ConnectTo(const std::string& path);

}  // namespace simulation
