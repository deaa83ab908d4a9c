// Bulk throughput of 1 MiB messages echoed between two transports on loopback, beside a plain
// blocking-socket ping-pong of the same payload. Last line: "ratio NAME VALUE".
#include "stp_bench_common.h"

int main(int argc, char** argv) {
    if (argc >= 4 && std::strcmp(argv[1], "--peer") == 0)
        return stpbench::runPeer(argc, argv);
    stpbench::compare(argv[0], "stp_bulk_1MiB", 1048576, 60, 9, true);
    return 0;
}
