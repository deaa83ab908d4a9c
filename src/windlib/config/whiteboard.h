// The process's client of the WhiteBoard service: a local copy of every group it knows, with get
// and set operations on that copy, and the handlers that follow the changes the service sends.
#pragma once

#include "whiteboard_client_impl.h"
#include "whiteboard_group.h"

#include <map>

// One per process, reached through getWhiteBoard/connectWhiteBoard. Unconnected, it still works
// as a local store that starts with the process-wide defaults. Reference-counted like every spec
// class. Operations that wait (registerGroup with `wait`, requestAllChanges,
// requestChangesInGroup, waitForChanges) re-enter the loop: handlers and listeners may run
// inside them. Sends are one-way and never wait; a send that fails (no service, connection
// gone) makes the operation give false, while the local copy has changed all the same.
class WhiteBoard : public WhiteBoard_client_Impl {
public:
    // Starts with the process-wide defaults, taken in quietly: Bool, Int32, String, StringList.
    WhiteBoard();

    // Tells the service about `group` (and keeps a group object for it). With `use_disk` or a
    // file name, reads the file into the group first (the default file of the group without a
    // name). With `wait`, asks the service for the group's values and waits for them.
    bool registerGroup(const char* group, bool broadcast, bool use_disk, const char* use_filename,
                       bool wait);

    // False when the group or the name is unknown; nothing is sent.
    bool getBoolValue(const char* group, const char* name, bool* value) const;
    bool getInt32Value(const char* group, const char* name, int32_t* value) const;
    bool getStringValue(const char* group, const char* name, ut_string* value) const;
    bool getStringListValue(const char* group, const char* name, WBStringList* value) const;

    // A value equal to the present one changes and sends nothing (true). Otherwise it is set
    // locally (listeners fire) and, with `send`, the service is told; false when that failed.
    bool setBoolValue(const char* group, const char* name, bool value, bool send);
    bool setInt32Value(const char* group, const char* name, int32_t value, bool send);
    bool setStringValue(const char* group, const char* name, const char* value, bool send);
    bool setStringListValue(const char* group, const char* name, const WBStringList& value,
                            bool send);
    // Removes the name of `type` (WB_TYPE_ANY: every type) locally and, with `send`, at the
    // service. A name that does not exist sends nothing (true).
    bool deleteName(const char* group, const char* name, int32_t type, bool send);

    // Ask the service for values and wait for its one Changes (with `retry`; without one, in
    // slices of 4000 ms until the connection goes). False when the request could not be sent or
    // no Changes came.
    bool requestAllChanges(RetryHandler* retry);
    bool requestChangesInGroup(const char* group, RetryHandler* retry);
    bool waitForChanges(RetryHandler* retry);

    // Asks the service to write the group to `file` (sent unchanged). An unknown group gives
    // true and sends nothing.
    bool saveGroupToFile(const char* group, const char* file);
    // The values of a group file (.wbd) set over the group, listeners firing for those that
    // differ. A missing file changes nothing and gives true.
    bool mergeGroupFromFile(const char* group, const char* file);
    // The group replaced by a new one (listeners and values gone) filled from the file.
    bool replaceGroupFromFile(const char* group, const char* file);

    // Listeners of a group, made (and stored) when it does not exist yet.
    bool addBoolListener(const char* group, WBBoolListener listener);
    bool addInt32Listener(const char* group, WBInt32Listener listener);
    bool addStringListener(const char* group, WBStringListener listener);
    bool addStringListListener(const char* group, WBStringListListener listener);
    bool addDeleteListener(const char* group, WBDeleteListener listener);

    // The group of that name, or null. Owned by the WhiteBoard.
    GroupClient* findGroup(const char* group) const;
    // The service accepted the connection.
    bool isConnected() const { return connected; }

    // ---- Handlers of the service's messages ----
    void SetBoolValue(const WhiteBoardNumberInfo& info) override;
    void SetInt32Value(const WhiteBoardNumberInfo& info) override;
    void SetStringValue(const WhiteBoardStringInfo& info) override;
    void SetStringListValue(const WhiteBoardStringListInfo& info) override;
    // Types 0 to 4 delete the name, if the group exists; any other type is dropped.
    void DeleteEvent(const char* group, const char* name, int32_t type) override;
    // Every record through the handler of its type, in the order Bool, Int32, String,
    // StringList; then the wait for changes may end.
    void Changes(const WhiteBoardNumberInfoArray& bool_info_array,
                 const WhiteBoardNumberInfoArray& int32_info_array,
                 const WhiteBoardStringInfoArray& string_info_array,
                 const WhiteBoardStringListInfoArray& stringlist_info_array) override;

protected:
    // Deletes every group; clears the global pointer if this is the global object.
    ~WhiteBoard() override;

private:
    friend WhiteBoard* connectWhiteBoard(RetryHandler* retry);

    // The group of that name, made and stored when there is none.
    GroupClient* groupFor(const char* group);

    bool connected = false;
    bool changes_received = false;
    std::map<ut_string, GroupClient*> groups; // owned
};

// The global WhiteBoard, made (unconnected) if there is none.
WhiteBoard* getWhiteBoard();
// The global WhiteBoard connected to the service through the router (waits through the
// connection and negotiation), or null: without a router proxy, or when the service cannot be
// reached (the object is then released).
WhiteBoard* connectWhiteBoard(RetryHandler* retry);
// Drops the connection (forced), releases the global WhiteBoard and clears the pointer.
void disconnectWhiteBoard();
