// empty-program [memory]
//
// Does nothing; what it takes is the system's. With "memory" it prints its peak of private bytes
// and of pages in memory, in MiB.

#include <cstdlib>

#include "product/memory_use.h"
#include "program_main.h"

int WINAPI wWinMain(HINSTANCE, HINSTANCE, PWSTR, int) {
    if (__argc > 1) {
        const bench::MemoryUse memory = bench::PeakMemoryUse();
        bench::PrintNumbers({memory.privatePeak, memory.residentPeak});
    }
    return 0;
}
