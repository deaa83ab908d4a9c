// ut_string_list: a doubly linked list of ut_string values. The list owns its nodes; node
// pointers stay valid until their node is erased or the list is cleared.
#pragma once

#include "ut_string.h"

class ut_string_list {
public:
    struct Node {
        ut_string value;
        Node* next = nullptr;
        Node* prev = nullptr;
    };

    ut_string_list() = default;
    ut_string_list(const ut_string_list& other);
    ut_string_list& operator=(const ut_string_list& other);
    ~ut_string_list();

    void clear();
    // Each gives the new node.
    Node* pushFront(const ut_string& value);
    Node* pushFront(const char* value);
    Node* pushFront(const char* text, int length);
    Node* pushBack(const ut_string& value);
    Node* pushBack(const char* value);
    Node* pushBack(const char* text, int length);
    // Inserts in front of `node`; a null node means at the end.
    Node* insertBefore(Node* node, const ut_string& value);
    // Removes `node` and gives the one behind it.
    Node* erase(Node* node);
    // Removes every entry equal to `value`; gives how many went.
    int remove(const ut_string& value);
    // The first node equal to `value`, or null.
    Node* find(const ut_string& value) const;
    // Sorts in place by strcmp of the texts (stable).
    void sort();
    // Appends copies of the values of `list` (which may be this list).
    void appendList(const ut_string_list& list);

    // Same count and equal values in order.
    bool operator==(const ut_string_list& other) const;
    bool operator!=(const ut_string_list& other) const { return !(*this == other); }

    Node* head = nullptr;
    Node* tail = nullptr;
    int count = 0;
};
