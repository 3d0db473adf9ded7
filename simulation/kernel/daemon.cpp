#include "simulation/kernel/daemon.h"

#include <poll.h>
#include <unistd.h>

#include "simulation/kernel/file_system.h"

namespace simulation {

void ServeKernel(Kernel& kernel, int fuseFd, int requests) {
    FileSystem files(kernel.Files(), fuseFd);
    pollfd sources[] = {{files.Fd(), POLLIN, 0}, {requests, POLLIN, 0}, {kernel.Log().Socket(), POLLIN, 0}};
    for (;;) {
        if (poll(sources, std::size(sources), kernel.Work()) < 0 && errno != EINTR) {
            return;
        }
        if ((sources[0].revents != 0) && !files.ServeOne()) {
            return;
        }
        if (sources[1].revents != 0) {
            const auto request = ReceiveWords(requests);
            if (!request || !SendAnswer(requests, kernel.Handle(*request))) {
                return;
            }
            if (kernel.PowerIsCut()) {
                _exit(kPowerCutCode);
            }
        }
        if (sources[2].revents != 0) {
            kernel.Log().Drain();
        }
    }
}

}  // namespace simulation
