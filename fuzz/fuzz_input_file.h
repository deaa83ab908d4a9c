// The input of a fuzz run as a file, for readers that take a path: written once per run to a
// file of this process in the temporary folder.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

#include "plat_process.h"

inline const std::string& fuzzInputPath() {
    static const std::string path =
        "/tmp/cvss_fuzz_input_" + std::to_string(plat_current_process_id()) + ".txt";
    return path;
}

inline bool writeFuzzInput(const uint8_t* data, size_t size) {
    FILE* file = std::fopen(fuzzInputPath().c_str(), "wbe");
    if (file == nullptr)
        return false;
    bool ok = std::fwrite(data, 1, size, file) == size;
    return std::fclose(file) == 0 && ok;
}
