#include "checkout_report.h"

#include "cvs_update_parser.h"
#include "gen_file.h"
#include "mstring.h"

#include <string>
#include <string_view>

const char* const kMergeFinishedMessage = "Finished merging data from CVS and local filesystem.";

namespace {

using namespace checkout_type;

void warn(MString* warnings, const char* a, const char* b, const char* c) {
    if (!warnings)
        return;
    MString_append(warnings, a);
    MString_append(warnings, b);
    MString_append(warnings, c);
}

// The item of a path that only cvs knows about.
CheckoutItem leftoverItem(MString* warnings, std::string_view path, uint32_t type) {
    // This platform's one separator; localPathOf wrote it between the directory and the name.
    size_t slash = path.rfind('/');
    ut_string directory(path.data(), static_cast<int>(slash == std::string_view::npos ? 0 : slash));
    ut_string filename =
        slash == std::string_view::npos
            ? ut_string(path.data(), static_cast<int>(path.size()))
            : ut_string(path.data() + slash + 1, static_cast<int>(path.size() - slash - 1));
    uint32_t itemType = Unknown;
    if (type == RemotelyModified) {
        itemType = RemotelyAdded;
    } else if (type == NotUnderVC) {
        std::string text(path);
        itemType = gen_is_directory(text.c_str()) ? DirectoryNotUnderVC : NotUnderVC;
    } else {
        std::string text(path);
        warn(warnings,
             "Warning: File listed in update and not found in local repo was not marked as "
             "remotely added.\nMarking file \"",
             text.c_str(), "\" as unknown.\n");
    }
    const ut_string notApplicable("N/A");
    return CheckoutItem(itemType, directory, filename, notApplicable, notApplicable);
}

} // namespace

std::optional<CheckoutItem> mergeEntry(MString* warnings, const ut_string& entry_dir,
                                       const CVSEntry& entry, RemoteMap* remote) {
    ut_string path = localPathOf(entry_dir.c_str(), entry.name.c_str());
    auto found = remote->find(std::string_view(path.c_str(), static_cast<size_t>(path.length())));
    if (found == remote->end())
        return CheckoutItem(NoChanges, entry_dir, entry.name, entry.version, entry.tag);
    uint32_t said = found->second;
    remote->erase(found);
    uint32_t type = said;
    ut_string version = entry.version;
    switch (said) {
    case WillConflict:
    case NeedsMerge:
    case HasConflict:
    case LocallyRemoved:
    case RemotelyRemoved:
    case RemotelyModified:
        break;
    case LocallyAdded:
        version = "New File";
        break;
    case LocallyModified:
        type = entry.removed ? LocallyRemoved : LocallyModified;
        break;
    default:
        warn(warnings, "Warning: Unable to determine how to handle file \"", entry.name.c_str(),
             "\"\nIgnoring file.\n");
        return std::nullopt;
    }
    return CheckoutItem(type, entry_dir, entry.name, version, entry.tag);
}

CheckoutInfo mergeCheckoutInfo(MString* warnings, const char* dir, const char* cvs_output,
                               bool update_mode, std::deque<EntriesRead>* entries_read,
                               const std::function<void(const char* message)>& statusUpdate) {
    RemoteMap remote;
    const char* text = cvs_output;
    UpdateRecord record;
    while (text && *text) {
        const char* next = nullptr;
        if (!parseUpdateOutput(text, dir, update_mode, &next, &record))
            break;
        std::string_view key(record.path.c_str(), static_cast<size_t>(record.path.length()));
        auto found = remote.find(key);
        if (found != remote.end())
            found->second = record._type;
        else
            remote.emplace(MStringKey(key), record._type);
        text = next;
    }

    CheckoutInfo info{ut_string(dir)};
    while (!entries_read->empty()) {
        EntriesRead& read = entries_read->front();
        for (const auto& [name, entry] : read.image->entriesMap())
            if (std::optional<CheckoutItem> item =
                    mergeEntry(warnings, read.directory, *entry, &remote))
                info.add(std::move(*item));
        entries_read->pop_front();
    }
    if (statusUpdate)
        statusUpdate(kMergeFinishedMessage);

    for (const auto& [path, type] : remote)
        info.add(leftoverItem(warnings, path.view(), type));
    return info;
}

CheckoutInfo packLocalItems(const char* dir, std::deque<CheckoutItem>* local_items) {
    CheckoutInfo info(ut_string(dir), static_cast<int32_t>(local_items->size()));
    for (CheckoutItem& item : *local_items)
        info.add(std::move(item));
    local_items->clear();
    return info;
}
