// Leaks on purpose: the leak checker is to see it on a simulated appliance, where it would otherwise be
// silent unnoticed.
#include <cstdlib>

int main() {
    static void* volatile lost = std::malloc(77);
    lost = nullptr;
    return 0;
}
