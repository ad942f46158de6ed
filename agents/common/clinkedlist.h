// CLinkedList<T>: a doubly linked list that owns a copy of each record, in tracked memory. Not
// thread-safe. A node stays where it is until it is removed or the list is freed.
#ifndef KEEL_AGENTS_COMMON_CLINKEDLIST_H
#define KEEL_AGENTS_COMMON_CLINKEDLIST_H

#include <cstdint>
#include <new>

#include "common/ut/trace.h"
#include "common/ut/utmem.h"

template <class T> class CLinkedList
{
public:
    struct Node {
        Node *next;
        Node *prev;
        T record;
    };
    using CopyOp = void (*)(T &to, const T &from);

    static constexpr std::uint32_t kNoMemory = 102;

    explicit CLinkedList(CopyOp copyOp = nullptr) : copyOp_(copyOp) {}
    ~CLinkedList() { freeAll(); }
    CLinkedList(const CLinkedList &) = delete;
    CLinkedList &operator=(const CLinkedList &) = delete;

    /// Appends a copy of record: made by the copy operation from a default T when useCopyOp is 1
    /// and there is one, else by T's copy constructor. Returns 0, or kNoMemory with the list
    /// unchanged.
    std::uint32_t addTail(const T &record, int useCopyOp = 0)
    {
        KEEL_TRACE(TR_LINKEDLIST, "Enter CLinkedList::addTail()\n");
        void *room = utMalloc(sizeof(Node));
        if (room == nullptr) {
            KEEL_TRACE(TR_LINKEDLIST, "Exit CLinkedList::addTail(), rc = %u\n", kNoMemory);
            return kNoMemory;
        }
        Node *node = nullptr;
        if (useCopyOp == 1 && copyOp_ != nullptr) {
            node = new (room) Node{nullptr, tail_, T{}};
            copyOp_(node->record, record);
        } else {
            node = new (room) Node{nullptr, tail_, record};
        }
        (tail_ == nullptr ? head_ : tail_->next) = node;
        tail_ = node;
        ++count_;
        KEEL_TRACE(TR_LINKEDLIST, "Exit CLinkedList::addTail(), rc = 0\n");
        return 0;
    }

    /// Unlinks and destroys a node of this list; returns the node that followed it, or null.
    Node *remove(Node *node)
    {
        KEEL_TRACE(TR_LINKEDLIST, "Enter CLinkedList::remove()\n");
        Node *following = node->next;
        (node->prev == nullptr ? head_ : node->prev->next) = following;
        (following == nullptr ? tail_ : following->prev) = node->prev;
        --count_;
        node->~Node();
        utFree(node);
        KEEL_TRACE(TR_LINKEDLIST, "Exit CLinkedList::remove()\n");
        return following;
    }

    /// Destroys every node; the list is empty and usable afterwards.
    void freeAll()
    {
        KEEL_TRACE(TR_LINKEDLIST, "Enter CLinkedList::freeAll()\n");
        while (head_ != nullptr) {
            remove(head_);
        }
        KEEL_TRACE(TR_LINKEDLIST, "Exit CLinkedList::freeAll()\n");
    }

    /// The first and the last node; null when the list is empty.
    [[nodiscard]] Node *head() const { return head_; }
    [[nodiscard]] Node *tail() const { return tail_; }
    [[nodiscard]] std::uint32_t count() const { return count_; }

private:
    Node *head_ = nullptr;
    Node *tail_ = nullptr;
    CopyOp copyOp_;
    std::uint32_t count_ = 0;
};

#endif
