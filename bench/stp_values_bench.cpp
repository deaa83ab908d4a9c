// Encoding and decoding of typical request bodies in both forms: the router's service list in
// the binary form, and a five-field request in the ASCII form. Bytes are body bytes.
#include "indgen.h"
#include "stp_stream.h"

#include <benchmark/benchmark.h>

#include <vector>

namespace {

constexpr int32_t kHeaderSize = 44;
constexpr int32_t kNameList = 28;
constexpr int32_t kCount = 6;

// As an outgoing message starts: 108 bytes, the cursor behind the header.
void writeServiceList(STPStream& s) {
    s.seek(kHeaderSize);
    int32_t mark;
    s.beginStruct(kNameList, &mark);
    s.putInt32(kCount, 2);
    s.putListCount(2);
    s.putStringField(STP_TAG_LIST_ELEMENT, "VersionControl.CVS");
    s.putStringField(STP_TAG_LIST_ELEMENT, "VC_CheckoutInfo.CVS");
    s.endStruct(mark);
    s.putU32(0);
}

void writeCheckIn(STPStream& s) {
    s.seek(kHeaderSize);
    s.asciiPutWord("CheckInFile");
    s.asciiPutNamedString("filename", "src/services/versioncontrol/cvsservice/main.cpp");
    s.asciiPutNamedString("cwd", "C:\\work\\checkout");
    s.asciiPutNamedNumber("keep_checked_out", 1);
    s.asciiPutNamedString("comments", "Fix the \"status\" parser\nfor merged files");
    s.asciiPutNamedString("revision", nullptr);
    s.putU32(0);
}

std::vector<char> packetOf(void (*write)(STPStream&)) {
    STPStream s(108);
    write(s);
    return std::vector<char>(s.data(), s.data() + s.size());
}

void report(benchmark::State& state, size_t packetSize) {
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(packetSize - kHeaderSize));
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}

void BM_EncodeBinaryServiceList(benchmark::State& state) {
    for (auto _ : state) {
        STPStream s(108);
        writeServiceList(s);
        benchmark::DoNotOptimize(s.data());
    }
    report(state, packetOf(writeServiceList).size());
}

void BM_DecodeBinaryServiceList(benchmark::State& state) {
    std::vector<char> packet = packetOf(writeServiceList);
    for (auto _ : state) {
        STPStream r(packet.data(), static_cast<int32_t>(packet.size()));
        r.startReading(kHeaderSize);
        STPFieldScope scope;
        r.enterScope(kNameList, &scope);
        benchmark::DoNotOptimize(r.getInt32(kCount));
        int32_t n = r.getListCount();
        for (int32_t i = 0; i < n; ++i) {
            char* name = r.getString(STP_TAG_LIST_ELEMENT);
            benchmark::DoNotOptimize(name);
            gen_free(name);
        }
        r.leaveScope(scope);
    }
    report(state, packet.size());
}

void BM_EncodeAsciiRequest(benchmark::State& state) {
    for (auto _ : state) {
        STPStream s(108);
        writeCheckIn(s);
        benchmark::DoNotOptimize(s.data());
    }
    report(state, packetOf(writeCheckIn).size());
}

// Reads the fields in `order` (indexes into the five names), as a dispatcher would.
void decodeCheckIn(benchmark::State& state, const std::vector<int>& order) {
    static const char* const names[5] = {"filename", "cwd", "keep_checked_out", "comments",
                                         "revision"};
    std::vector<char> packet = packetOf(writeCheckIn);
    for (auto _ : state) {
        STPStream r(packet.data(), static_cast<int32_t>(packet.size()));
        r.startReading(kHeaderSize);
        int32_t length;
        benchmark::DoNotOptimize(r.asciiGetWord(&length));
        for (int field : order) {
            if (field == 2) {
                benchmark::DoNotOptimize(r.asciiGetNamedNumber(names[field]));
            } else {
                char* value = r.asciiGetNamedString(names[field]);
                benchmark::DoNotOptimize(value);
                gen_free(value);
            }
        }
    }
    report(state, packet.size());
}

void BM_DecodeAsciiRequest(benchmark::State& state) {
    decodeCheckIn(state, {0, 1, 2, 3, 4});
}

// Out of written order every lookup scans from the start of the scope.
void BM_DecodeAsciiRequestReversed(benchmark::State& state) {
    decodeCheckIn(state, {4, 3, 2, 1, 0});
}

BENCHMARK(BM_EncodeBinaryServiceList);
BENCHMARK(BM_DecodeBinaryServiceList);
BENCHMARK(BM_EncodeAsciiRequest);
BENCHMARK(BM_DecodeAsciiRequest);
BENCHMARK(BM_DecodeAsciiRequestReversed);

} // namespace

BENCHMARK_MAIN();
