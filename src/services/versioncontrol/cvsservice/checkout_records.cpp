#include "checkout_records.h"

#include "indgen.h"

#include <cctype>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

namespace checkout_type {
namespace {
StatusBand statusBandOf(uint32_t type) {
    return type > INT32_MAX ? StatusBand::none : statusTypeBand(static_cast<int32_t>(type));
}
} // namespace
bool inLocalChangeBand(uint32_t type) {
    return statusBandOf(type) == StatusBand::local_change;
}
bool inRemoteChangeBand(uint32_t type) {
    return statusBandOf(type) == StatusBand::remote_change;
}
bool inNotControlledBand(uint32_t type) {
    return statusBandOf(type) == StatusBand::not_controlled;
}
bool inUnchangedBand(uint32_t type) {
    return statusBandOf(type) == StatusBand::unchanged;
}
} // namespace checkout_type

namespace {

using namespace checkout_type;

bool isSeparator(char c) {
    return c == '/' || c == '\\';
}

std::string_view view(const ut_string& s) {
    return std::string_view(s.c_str(), static_cast<size_t>(s.length()));
}

// `dir` and `name` with a `/` between them, unless `dir` is empty or ends in a separator.
ut_string joinShown(const ut_string& dir, const ut_string& name) {
    if (dir.length() == 0)
        return name;
    if (isSeparator(dir.c_str()[dir.length() - 1]))
        return dir + name;
    ut_string joined(dir);
    joined.append('/');
    joined.append(name);
    return joined;
}

// Sets `*type` to `to` when it is not already; true if it changed.
bool setType(uint32_t* type, uint32_t to) {
    if (*type == to)
        return false;
    *type = to;
    return true;
}

// The band a value lies in (0 to 3), or -1 outside all bands.
int bandOf(uint32_t type) {
    if (inLocalChangeBand(type))
        return 0;
    if (inRemoteChangeBand(type))
        return 1;
    if (inNotControlledBand(type))
        return 2;
    if (inUnchangedBand(type))
        return 3;
    return -1;
}

int threeWay(std::string_view a, std::string_view b) {
    int c = a.compare(b);
    return c < 0 ? -1 : (c > 0 ? 1 : 0);
}

int directed(int result, bool ascending) {
    return ascending ? result : -result;
}

// The component of `path` that begins at `*pos`, moving `*pos` behind its separator (or to the
// end). `*last` tells whether the path ends with it.
std::string_view nextComponent(std::string_view path, size_t* pos, bool* last) {
    size_t start = *pos;
    size_t end = start;
    while (end < path.size() && !isSeparator(path[end]))
        ++end;
    *last = end >= path.size();
    *pos = *last ? path.size() : end + 1;
    return path.substr(start, end - start);
}

} // namespace

CheckoutItem::CheckoutItem(uint32_t type, const ut_string& directory, const ut_string& filename,
                           const ut_string& local_version, const ut_string& tag)
    : _type(type), _filename(filename), _local_version(local_version), _tag(tag),
      _directory(directory) {}

const ut_string& CheckoutItem::shownPath() const {
    if (shown_path.isNull())
        shown_path = joinShown(shown_directory.isNull() ? _directory : shown_directory, _filename);
    return shown_path;
}

bool CheckoutItem::placedUnderVCAdded() {
    if (_type != NotUnderVC)
        return false;
    _type = LocallyAdded;
    marked = false;
    return true;
}

bool CheckoutItem::placedUnderVCCommitted() {
    if (_type != NotUnderVC)
        return false;
    _type = NoChanges;
    marked = false;
    return true;
}

bool CheckoutItem::localChangeCommitted() {
    return inLocalChangeBand(_type) && setType(&_type, NoChanges);
}

bool CheckoutItem::updateDone() {
    if (inRemoteChangeBand(_type))
        return setType(&_type, NoChanges);
    if (_type == WillConflict)
        return setType(&_type, HasConflict);
    if (_type == NeedsMerge)
        return setType(&_type, LocallyModified);
    return false;
}

bool CheckoutItem::localChangeReverted() {
    if (inLocalChangeBand(_type) || _type == HasConflict)
        return setType(&_type, NoChanges);
    if (_type == WillConflict || _type == NeedsMerge)
        return setType(&_type, RemotelyModified);
    return false;
}

bool CheckoutItem::fileEdited() {
    return _type == NoChanges && setType(&_type, LocallyModified);
}

bool CheckoutItem::fileRemovedByHand() {
    if (_type != NotUnderVC && _type != LocallyRemoved)
        return false;
    _type = FileDoesNotExist;
    marked = true;
    return true;
}

bool CheckoutItem::removedFromVC() {
    return _type == NoChanges && setType(&_type, LocallyRemoved);
}

void CheckoutItem::setRoot(const char* root) {
    std::string_view r = root ? root : "";
    std::string_view dir = view(_directory);
    bool bareRoot = (r.size() == 1 && isSeparator(r[0])) ||
                    (r.size() == 3 && std::isalpha(static_cast<unsigned char>(r[0])) &&
                     r[1] == ':' && r[2] == '\\');
    if (!r.empty() && !bareRoot && dir.substr(0, r.size()) == r) {
        std::string_view rest = dir.substr(r.size());
        if (!rest.empty() && isSeparator(rest[0]))
            rest.remove_prefix(1);
        shown_directory = ut_string(rest.data(), static_cast<int>(rest.size()));
    } else {
        shown_directory = _directory;
        // A null _directory still makes a present shown_directory: the root has been set.
        if (shown_directory.isNull())
            shown_directory = "";
    }
    shown_path = joinShown(shown_directory, _filename);
}

int compareItemsByType(const CheckoutItem& a, const CheckoutItem& b, bool ascending) {
    int bandA = bandOf(a._type);
    int bandB = bandOf(b._type);
    if (a._type == b._type || (bandA >= 0 && bandA == bandB))
        return 0;
    // The unchanged band goes last whatever the direction.
    if (bandA == 3)
        return 1;
    if (bandB == 3)
        return -1;
    return directed(a._type < b._type ? -1 : 1, ascending);
}

int compareItemsByLocalVersion(const CheckoutItem& a, const CheckoutItem& b, bool ascending) {
    return directed(threeWay(view(a._local_version), view(b._local_version)), ascending);
}

int compareItemsByTag(const CheckoutItem& a, const CheckoutItem& b, bool ascending) {
    return directed(threeWay(view(a._tag), view(b._tag)), ascending);
}

int compareItemsByPath(const CheckoutItem& a, const CheckoutItem& b, bool ascending) {
    std::string_view pa = view(a.shownPath());
    std::string_view pb = view(b.shownPath());
    size_t posA = 0;
    size_t posB = 0;
    for (;;) {
        bool lastA = false;
        bool lastB = false;
        std::string_view ca = nextComponent(pa, &posA, &lastA);
        std::string_view cb = nextComponent(pb, &posB, &lastB);
        if (lastA != lastB)
            return directed(lastA ? -1 : 1, ascending);
        int c = threeWay(ca, cb);
        if (c != 0 || lastA)
            return directed(c, ascending);
    }
}

CheckoutInfo::CheckoutInfo(const ut_string& checkout_dir, int32_t capacity)
    : _checkout_dir(checkout_dir), _items(capacity > 0 ? new CheckoutItem[capacity] : nullptr),
      capacity_(capacity > 0 ? capacity : 0) {}

void CheckoutInfo::add(CheckoutItem item) {
    if (_num_items >= capacity_) {
        int32_t grown = capacity_ > 0 ? capacity_ * 2 : kFirstCapacity;
        std::unique_ptr<CheckoutItem[]> larger(new CheckoutItem[grown]);
        for (int32_t i = 0; i < _num_items; ++i)
            larger[i] = std::move(_items[i]);
        _items = std::move(larger);
        capacity_ = grown;
    }
    _items[_num_items++] = std::move(item);
}

template <typename Keep> void CheckoutInfo::keepOnly(Keep keep) {
    int32_t kept = 0;
    for (int32_t i = 0; i < _num_items; ++i) {
        if (!keep(_items[i]))
            continue;
        if (kept != i)
            _items[kept] = std::move(_items[i]);
        ++kept;
    }
    for (int32_t i = kept; i < _num_items; ++i)
        _items[i] = CheckoutItem();
    _num_items = kept;
}

void CheckoutInfo::updatePartial(const CheckoutInfo& newer) {
    // The old items by directory and name; a NUL cannot occur in either.
    std::unordered_map<std::string, int32_t> index;
    auto keyOf = [](const CheckoutItem& item) {
        std::string key(view(item._directory));
        key += '\0';
        key += view(item._filename);
        return key;
    };
    for (int32_t i = 0; i < _num_items; ++i)
        index.emplace(keyOf(_items[i]), i);
    int32_t oldCount = _num_items;
    for (const CheckoutItem& item : newer) {
        auto found = index.find(keyOf(item));
        if (found != index.end()) {
            CheckoutItem& old = _items[found->second];
            old._type = item._type;
            old._local_version = item._local_version;
            old._tag = item._tag;
        } else {
            add(item);
        }
    }
    int32_t position = 0;
    keepOnly([&](const CheckoutItem& item) { return position++ >= oldCount || !item.marked; });
}

void CheckoutInfo::updateComplete(const CheckoutInfo& newer) {
    std::string_view root = view(newer._checkout_dir);
    // Without a trailing separator, "/a/b" must not take "/a/bc" with it.
    while (root.size() > 1 && isSeparator(root.back()))
        root.remove_suffix(1);
    keepOnly([&](const CheckoutItem& item) {
        std::string_view dir = view(item._directory);
        bool below = dir.substr(0, root.size()) == root &&
                     (dir.size() == root.size() || isSeparator(dir[root.size()]) ||
                      (!root.empty() && isSeparator(root.back())));
        return !below;
    });
    for (const CheckoutItem& item : newer)
        add(item);
}

CheckoutInfoRecord CheckoutInfo::wireRecord() const {
    CheckoutInfoRecord record;
    record._checkout_dir = const_cast<char*>(_checkout_dir.c_str());
    record._num_items = _num_items;
    record._items = static_cast<CheckoutItemRecord*>(
        gen_alloc(static_cast<size_t>(_num_items), sizeof(CheckoutItemRecord)));
    for (int32_t i = 0; i < _num_items; ++i) {
        const CheckoutItem& item = _items[i];
        CheckoutItemRecord& out = record._items[i];
        out._type = item._type;
        out._filename = const_cast<char*>(item._filename.c_str());
        out._local_version = const_cast<char*>(item._local_version.c_str());
        out._tag = const_cast<char*>(item._tag.c_str());
        out._locked_by = const_cast<char*>("");
        out._directory = const_cast<char*>(item._directory.c_str());
    }
    return record;
}

void CheckoutInfo::releaseWireRecord(CheckoutInfoRecord* record) {
    gen_free(record->_items);
    *record = CheckoutInfoRecord{};
}
