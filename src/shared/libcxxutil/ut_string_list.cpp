#include "ut_string_list.h"

#include <algorithm>
#include <cstring>
#include <vector>

ut_string_list::ut_string_list(const ut_string_list& other) {
    appendList(other);
}

ut_string_list& ut_string_list::operator=(const ut_string_list& other) {
    if (this != &other) {
        clear();
        appendList(other);
    }
    return *this;
}

ut_string_list::~ut_string_list() {
    clear();
}

void ut_string_list::clear() {
    Node* node = head;
    while (node) {
        Node* next = node->next;
        delete node;
        node = next;
    }
    head = tail = nullptr;
    count = 0;
}

ut_string_list::Node* ut_string_list::pushFront(const ut_string& value) {
    return insertBefore(head, value);
}
ut_string_list::Node* ut_string_list::pushFront(const char* value) {
    return insertBefore(head, ut_string(value));
}
ut_string_list::Node* ut_string_list::pushFront(const char* text, int length) {
    return insertBefore(head, ut_string(text, length));
}
ut_string_list::Node* ut_string_list::pushBack(const ut_string& value) {
    return insertBefore(nullptr, value);
}
ut_string_list::Node* ut_string_list::pushBack(const char* value) {
    return insertBefore(nullptr, ut_string(value));
}
ut_string_list::Node* ut_string_list::pushBack(const char* text, int length) {
    return insertBefore(nullptr, ut_string(text, length));
}

ut_string_list::Node* ut_string_list::insertBefore(Node* node, const ut_string& value) {
    Node* fresh = new Node{value};
    fresh->next = node;
    fresh->prev = node ? node->prev : tail;
    if (fresh->prev)
        fresh->prev->next = fresh;
    else
        head = fresh;
    if (node)
        node->prev = fresh;
    else
        tail = fresh;
    ++count;
    return fresh;
}

ut_string_list::Node* ut_string_list::erase(Node* node) {
    if (!node)
        return nullptr;
    Node* next = node->next;
    if (node->prev)
        node->prev->next = next;
    else
        head = next;
    if (next)
        next->prev = node->prev;
    else
        tail = node->prev;
    delete node;
    --count;
    return next;
}

int ut_string_list::remove(const ut_string& value) {
    // `value` may be a node's own value: compare against a copy that outlives the erasures.
    ut_string target = value;
    int removed = 0;
    for (Node* node = head; node;) {
        if (node->value == target) {
            node = erase(node);
            ++removed;
        } else {
            node = node->next;
        }
    }
    return removed;
}

ut_string_list::Node* ut_string_list::find(const ut_string& value) const {
    for (Node* node = head; node; node = node->next)
        if (node->value == value)
            return node;
    return nullptr;
}

void ut_string_list::sort() {
    std::vector<Node*> nodes;
    nodes.reserve(static_cast<size_t>(count));
    for (Node* node = head; node; node = node->next)
        nodes.push_back(node);
    std::stable_sort(nodes.begin(), nodes.end(), [](const Node* a, const Node* b) {
        return std::strcmp(a->value.c_str(), b->value.c_str()) < 0;
    });
    head = tail = nullptr;
    for (Node* node : nodes) {
        node->prev = tail;
        node->next = nullptr;
        if (tail)
            tail->next = node;
        else
            head = node;
        tail = node;
    }
}

void ut_string_list::appendList(const ut_string_list& list) {
    // Counted, so that appending a list to itself stops at its old end.
    int n = list.count;
    Node* node = list.head;
    for (int i = 0; i < n && node; ++i, node = node->next)
        pushBack(node->value);
}

bool ut_string_list::operator==(const ut_string_list& other) const {
    if (count != other.count)
        return false;
    for (Node *a = head, *b = other.head; a && b; a = a->next, b = b->next)
        if (a->value != b->value)
            return false;
    return true;
}
