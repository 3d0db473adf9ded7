#include "worker.h"

#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <exception>

#include "appliance.h"

namespace bench {
namespace {

void Occupy(std::size_t bytes) {
    void* const memory =
        mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    Require(memory != MAP_FAILED, "no memory");
    madvise(memory, bytes, MADV_NOHUGEPAGE);  // a grown heap is made of small pages
    Require(madvise(memory, bytes, MADV_POPULATE_WRITE) == 0, "not enough memory");
}

void Serve(int socket, const std::vector<std::function<void()>>& jobs) {
    int job = 0;
    while (read(socket, &job, sizeof job) == sizeof job) {
        const Cost cost = CostOf(jobs[static_cast<std::size_t>(job)]);
        if (write(socket, &cost, sizeof cost) != sizeof cost) {
            return;
        }
    }
}

}  // namespace

Worker::Worker(std::size_t residentBytes, const std::vector<std::function<void()>>& jobs) {
    std::array<int, 2> ends{};
    Require(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) == 0, "socketpair");
    process_ = fork();
    Require(process_ >= 0, "fork");
    if (process_ == 0) {
        close(ends[0]);
        try {
            Occupy(residentBytes);
            Serve(ends[1], jobs);
        } catch (const std::exception&) {
            _exit(1);  // the other side sees the end of the connection
        }
        _exit(0);
    }
    close(ends[1]);
    socket_ = ends[0];
}

Worker::~Worker() {
    close(socket_);
    waitpid(process_, nullptr, 0);
}

Cost Worker::Do(int job) {
    Cost cost;
    Require(
        write(socket_, &job, sizeof job) == sizeof job && read(socket_, &cost, sizeof cost) == sizeof cost,
        "the job failed, or there was not enough memory");
    return cost;
}

}  // namespace bench
