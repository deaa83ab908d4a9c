// Request/reply round trips of small messages between two transports on loopback, beside a
// plain blocking-socket ping-pong of the same payload. Last line: "ratio NAME VALUE".
#include "stp_bench_common.h"

int main(int argc, char** argv) {
    if (argc >= 4 && std::strcmp(argv[1], "--peer") == 0)
        return stpbench::runPeer(argc, argv);
    stpbench::compare(argv[0], "stp_roundtrip_64B", 64, 10000, 9, false);
    return 0;
}
