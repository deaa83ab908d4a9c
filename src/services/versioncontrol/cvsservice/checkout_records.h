// The report records of the checkout-info service: one CheckoutItem per file of a checkout and
// the CheckoutInfo of one root, with the operations that belong to them as a type (state
// changes, orderings, a display root, updates from a newer report) and the conversion to the
// wire record that DisplayCheckoutInfo sends.
//
// Nothing here waits or re-enters the event loop; failures cannot happen (allocation ends the
// process when memory runs out).
#pragma once

#include "status_type.h"
#include "ut_string.h"
#include "vc_checkoutinfo_server_impl.h"

#include <cstdint>
#include <memory>

// The status numbers the items carry: the shared vocabulary of both services, as the unsigned
// values of the wire's `_type`.
namespace checkout_type {
inline constexpr uint32_t Unknown = VC_STATUS_UNKNOWN;
inline constexpr uint32_t WillConflict = VC_STATUS_WILL_CONFLICT;
inline constexpr uint32_t NeedsMerge = VC_STATUS_NEEDS_MERGE;
inline constexpr uint32_t HasConflict = VC_STATUS_HAS_CONFLICT;
inline constexpr uint32_t LocallyAdded = VC_STATUS_LOCALLY_ADDED;
inline constexpr uint32_t LocallyRemoved = VC_STATUS_LOCALLY_REMOVED;
inline constexpr uint32_t LocallyModified = VC_STATUS_LOCALLY_MODIFIED;
inline constexpr uint32_t RemotelyAdded = VC_STATUS_REMOTELY_ADDED;
inline constexpr uint32_t RemotelyRemoved = VC_STATUS_REMOTELY_REMOVED;
inline constexpr uint32_t RemotelyModified = VC_STATUS_REMOTELY_MODIFIED;
inline constexpr uint32_t NotUnderVC = VC_STATUS_NOT_UNDER_VC;
inline constexpr uint32_t DirectoryNotUnderVC = VC_STATUS_DIRECTORY_NOT_UNDER_VC;
inline constexpr uint32_t NoChanges = VC_STATUS_NO_CHANGES;
inline constexpr uint32_t FileDoesNotExist = VC_STATUS_FILE_DOES_NOT_EXIST;

// The bands of the vocabulary (statusTypeBand).
bool inLocalChangeBand(uint32_t type);
bool inRemoteChangeBand(uint32_t type);
bool inNotControlledBand(uint32_t type);
bool inUnchangedBand(uint32_t type);
} // namespace checkout_type

// One file of a report. The six wire fields keep their wire names; `marked`, `shown_path` and
// `shown_directory` never travel. Strings are ut_string values: a copy of an item is a copy of
// its texts (copies share a block until one of them is written, never visibly).
struct CheckoutItem {
    uint32_t _type = 0;
    ut_string _filename;      // the file's name, without any directory part
    ut_string _local_version; // working revision, "New File", or "N/A"
    ut_string _tag;           // sticky tag, "HEAD", or "N/A"
    ut_string _locked_by;     // never set: empty on the wire
    ut_string _directory;     // absolute directory that holds the file

    bool marked = false;
    // shown_directory (or _directory while it is null) joined with _filename. Made when first
    // asked for, through shownPath() or setRoot, rather than with the item: the service never
    // reads it, and a report of 100,000 files would carry some 10 MB of such paths.
    mutable ut_string shown_path;
    ut_string shown_directory; // null until setRoot; while null, _directory serves

    CheckoutItem() = default;
    CheckoutItem(uint32_t type, const ut_string& directory, const ut_string& filename,
                 const ut_string& local_version, const ut_string& tag);

    // shown_path, made first if it is still null.
    const ut_string& shownPath() const;

    // State changes after something happened to the file. Each gives true if it changed the
    // item.
    // Placed under version control and added: 2000 becomes 1000, and `marked` is cleared.
    bool placedUnderVCAdded();
    // Placed under version control and committed at once: 2000 becomes 2300, `marked` cleared.
    bool placedUnderVCCommitted();
    // A local change committed: the local-change band becomes 2300.
    bool localChangeCommitted();
    // Updated: the remote-change band becomes 2300, 500 becomes 700, 600 becomes 1200.
    bool updateDone();
    // A local change reverted: the local-change band becomes 2300, 500 and 600 become 1700,
    // 700 becomes 2300.
    bool localChangeReverted();
    // Edited: 2300 becomes 1200.
    bool fileEdited();
    // Deleted by hand: 2000 and 1100 become 2600, and `marked` is set.
    bool fileRemovedByHand();
    // Removed from version control: 2300 becomes 1100.
    bool removedFromVC();

    // Makes shown_directory and shown_path anew for a display below `root`. When `root` is not
    // empty, is not a lone `/` or `\` nor a drive letter followed by `:\` and nothing more, and
    // _directory begins with it, shown_directory is the rest of _directory less one `/` or `\`
    // at its head; otherwise it is _directory whole. The test is a plain prefix test, as the
    // records' clients expect: a root "/a/b" also strips "/a/bc".
    void setRoot(const char* root);
};

// Orderings of items, as three-way comparisons (negative, 0, positive) in the direction asked.
// By _type: items of one band, or of equal value, are equal; otherwise the unchanged band sorts
// last in both directions; otherwise by number.
int compareItemsByType(const CheckoutItem& a, const CheckoutItem& b, bool ascending);
// By _local_version or _tag: byte order (unsigned bytes, a prefix first).
int compareItemsByLocalVersion(const CheckoutItem& a, const CheckoutItem& b, bool ascending);
int compareItemsByTag(const CheckoutItem& a, const CheckoutItem& b, bool ascending);
// By shown_path, component by component (a component ends at `/` or `\`): where one path ends
// in a file and the other goes on into a directory, the file comes first; otherwise by the
// bytes of the components. Descending reverses the whole result.
int compareItemsByPath(const CheckoutItem& a, const CheckoutItem& b, bool ascending);

// The report of one root: `_num_items` items in an array of `capacity`. The array starts at
// 8192 items (or the capacity given) and doubles when an item is added to a full one; the items
// are moved across. Move-only: a report is handed on, never shared.
class CheckoutInfo {
public:
    static constexpr int32_t kFirstCapacity = 8192;

    explicit CheckoutInfo(const ut_string& checkout_dir, int32_t capacity = kFirstCapacity);
    CheckoutInfo(CheckoutInfo&&) noexcept = default;
    CheckoutInfo& operator=(CheckoutInfo&&) noexcept = default;
    CheckoutInfo(const CheckoutInfo&) = delete;
    CheckoutInfo& operator=(const CheckoutInfo&) = delete;

    void add(CheckoutItem item);
    int32_t count() const { return _num_items; }
    int32_t capacity() const { return capacity_; }
    CheckoutItem& operator[](int32_t index) { return _items[index]; }
    const CheckoutItem& operator[](int32_t index) const { return _items[index]; }
    CheckoutItem* begin() { return _items.get(); }
    CheckoutItem* end() { return _items.get() + _num_items; }
    const CheckoutItem* begin() const { return _items.get(); }
    const CheckoutItem* end() const { return _items.get() + _num_items; }

    // Updating from a newer report of the same root. Partial: each new item that matches an old
    // one in _filename and _directory gives it its _type, _local_version and _tag; the other new
    // items are added at the end; the old items with `marked` set go. Complete: every old item
    // whose _directory lies at or below the newer report's _checkout_dir goes, and all new
    // items are added.
    void updatePartial(const CheckoutInfo& newer);
    void updateComplete(const CheckoutInfo& newer);

    // The wire form, for DisplayCheckoutInfo. The record borrows this report's texts and is
    // valid while the report lives unchanged; `_locked_by` is empty in every element. Release
    // it with releaseWireRecord, never with CheckoutInfoRecord_free.
    CheckoutInfoRecord wireRecord() const;
    static void releaseWireRecord(CheckoutInfoRecord* record);

    ut_string _checkout_dir;

private:
    // Keeps the items for which `keep` holds, in order.
    template <typename Keep> void keepOnly(Keep keep);

    std::unique_ptr<CheckoutItem[]> _items;
    int32_t _num_items = 0;
    int32_t capacity_ = 0;
};
