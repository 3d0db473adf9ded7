// The maker's update server, on the appliance's loopback: hands out one file, well or badly.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <iostream>
#include <sstream>

#include "base/unique_fd.h"
#include "simulation/common/checked.h"
#include "simulation/tools/tool.h"

namespace simulation {

namespace {

constexpr char kUpdateUsage[] =
    "usage: vemo-update-server good|missing|hang|cut FILE\n"
    "Serves FILE from the background and prints its address. \"missing\" answers 404, \"hang\" never "
    "answers, and\n"
    "\"cut\" breaks off in the middle of the first answer and is gone.";

// A socket that listens on a free port; `address` receives it.
base::UniqueFd Listen(sockaddr_in& address) {
    base::UniqueFd listener(Checked(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "a socket"));
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    Checked(bind(listener.Get(), generic, size), "a port");
    Checked(listen(listener.Get(), SOMAXCONN), "a port");
    Checked(getsockname(listener.Get(), generic, &size), "a port");
    return listener;
}

// Reads a request to the blank line behind it; false when the client left before.
bool TakeRequest(int client) {
    std::string request;
    char piece[1024];
    while (request.find("\r\n\r\n") == std::string::npos) {
        const ssize_t length = read(client, piece, sizeof piece);
        if (length <= 0) {
            return false;
        }
        request.append(piece, static_cast<size_t>(length));
    }
    return true;
}

std::string AnswerOf(const std::string& mode, const std::string& path) {
    const std::ifstream file(path, std::ios::binary);
    if (mode == "missing" || !file) {
        return "HTTP/1.0 404 Not Found\r\nContent-Length: 0\r\n\r\n";
    }
    std::ostringstream content;
    content << file.rdbuf();
    const std::string body = content.str();
    const size_t sent = mode == "cut" ? body.size() / 2 : body.size();
    return "HTTP/1.0 200 OK\r\nContent-Type: application/octet-stream\r\nContent-Length: " +
           std::to_string(body.size()) + "\r\n\r\n" + body.substr(0, sent);
}

void SendAll(int client, std::string_view answer) {
    while (!answer.empty()) {
        const ssize_t sent = send(client, answer.data(), answer.size(), MSG_NOSIGNAL);
        if (sent <= 0) {
            return;
        }
        answer.remove_prefix(static_cast<size_t>(sent));
    }
}

// Until the appliance goes down, or the first answer was cut.
void Serve(int listener, const std::string& mode, const std::string& path) {
    for (;;) {
        const base::UniqueFd client(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC));
        if (!client || !TakeRequest(client.Get())) {
            continue;
        }
        if (mode == "hang") {
            pause();
        }
        SendAll(client.Get(), AnswerOf(mode, path));
        if (mode == "cut") {
            return;
        }
    }
}

// Lets go of whoever waits for our output to end.
void LeaveForeground() {
    setsid();
    const base::UniqueFd null(Checked(open("/dev/null", O_RDWR | O_CLOEXEC), "/dev/null"));
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        dup2(null.Get(), stream);
    }
}

}  // namespace

int UpdateServer(const Words& arguments) {
    const std::string mode = arguments.empty() ? "" : arguments[0];
    if (arguments.size() != 2 || (mode != "good" && mode != "missing" && mode != "hang" && mode != "cut")) {
        return Refuse(kUpdateUsage);
    }
    sockaddr_in address{};
    const base::UniqueFd listener = Listen(address);
    if (Checked(fork(), "a process") == 0) {
        LeaveForeground();
        Serve(listener.Get(), mode, arguments[1]);
        _exit(0);
    }
    std::cout << "http://127.0.0.1:" << ntohs(address.sin_port) << "/ssddb/getdb.php\n";
    return 0;
}

}  // namespace simulation
