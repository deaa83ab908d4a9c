// The client end of "VC_CheckoutInfo.CVS" for tests and benchmarks: records every event of the
// service in the order of arrival, with the reports copied out of the wire records.
#pragma once

#include "vc_checkoutinfo_client_impl.h"

#include <cstdint>
#include <string>
#include <vector>

struct CheckoutReportItem {
    uint32_t type = 0;
    std::string filename, local_version, tag, locked_by, directory;
};

struct CheckoutReport {
    std::string checkout_dir;
    int32_t num_items = 0;
    std::vector<CheckoutReportItem> items;

    // The item of `directory`/`filename`, or null.
    const CheckoutReportItem* find(const std::string& directory,
                                   const std::string& filename) const {
        for (const CheckoutReportItem& item : items)
            if (item.directory == directory && item.filename == filename)
                return &item;
        return nullptr;
    }
};

struct CheckoutEvent {
    enum Kind { status, output, display, finished };
    Kind kind = status;
    std::string text; // StatusUpdate and FinishedGettingCheckoutInfo message, ScanOutput scan
    bool is_stderr = false;
    CheckoutReport report; // DisplayCheckoutInfo
};

class RecordingCheckoutClient : public VC_CheckoutInfo_client_Impl {
public:
    std::vector<CheckoutEvent> events;

    void DisplayCheckoutInfo(const CheckoutInfoRecord& info) override {
        CheckoutEvent event;
        event.kind = CheckoutEvent::display;
        event.report.checkout_dir = text(info._checkout_dir);
        event.report.num_items = info._num_items;
        for (int32_t i = 0; info._items && i < info._num_items; ++i) {
            const CheckoutItemRecord& r = info._items[i];
            event.report.items.push_back({r._type, text(r._filename), text(r._local_version),
                                          text(r._tag), text(r._locked_by), text(r._directory)});
        }
        events.push_back(std::move(event));
    }
    void FinishedGettingCheckoutInfo(const char* message) override {
        add(CheckoutEvent::finished, message, false);
    }
    void ScanOutput(const char* scan, bool is_stderr) override {
        add(CheckoutEvent::output, scan, is_stderr);
    }
    void StatusUpdate(const char* message) override { add(CheckoutEvent::status, message, false); }

    size_t count(CheckoutEvent::Kind kind) const {
        size_t n = 0;
        for (const CheckoutEvent& e : events)
            n += e.kind == kind;
        return n;
    }
    // Everything a stream of ScanOutput carried, joined.
    std::string output(bool is_stderr) const {
        std::string all;
        for (const CheckoutEvent& e : events)
            if (e.kind == CheckoutEvent::output && e.is_stderr == is_stderr)
                all += e.text;
        return all;
    }
    std::vector<const CheckoutReport*> reports() const {
        std::vector<const CheckoutReport*> all;
        for (const CheckoutEvent& e : events)
            if (e.kind == CheckoutEvent::display)
                all.push_back(&e.report);
        return all;
    }
    // The StatusUpdate texts, in order.
    std::vector<std::string> statuses() const {
        std::vector<std::string> all;
        for (const CheckoutEvent& e : events)
            if (e.kind == CheckoutEvent::status)
                all.push_back(e.text);
        return all;
    }

protected:
    ~RecordingCheckoutClient() override = default;

private:
    static std::string text(const char* s) { return s ? s : ""; }
    void add(CheckoutEvent::Kind kind, const char* text, bool is_stderr) {
        CheckoutEvent event;
        event.kind = kind;
        event.text = text ? text : "";
        event.is_stderr = is_stderr;
        events.push_back(std::move(event));
    }
};
