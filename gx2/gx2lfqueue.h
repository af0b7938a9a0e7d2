#pragma once

#include <atomic>
#include <utility>

// Lock-free multi-producer queue: a Michael-Scott linked list whose head is a
// dummy node. enqueue() and isEmpty() may run on any thread at any time;
// dequeue() runs on one consumer at a time, and callers serialise consumers
// themselves (the logger's writer lock, the audit collector's single thread).
//
// The single consumer is what lets dequeue() take the value out of the new
// head after its compare-and-swap and own the old dummy: nobody else moves
// head. A producer, though, may still hold a stale tail that points at that
// old dummy, so the dummy is parked on a retired list and freed once no
// producer is inside the queue. That also keeps a freed address from coming
// back as a new node while an enqueue still compares against it (ABA).
//
// All atomics are sequentially consistent on purpose: freeing relies on the
// consumer's head move being ordered before its read of the visitor count.
template <typename T> class GX2LFQueue
{
public:
    GX2LFQueue()
    {
        Node* dummy = new Node;
        head.store(dummy);
        tail.store(dummy);
    }

    ~GX2LFQueue()
    {
        freeChain(head.load());
        freeRetired();
    }

    GX2LFQueue(const GX2LFQueue&) = delete;
    GX2LFQueue& operator=(const GX2LFQueue&) = delete;

    void enqueue(T value)
    {
        Node* node = new Node(std::move(value));
        Visit visit(visitors);
        for (;;) {
            Node* last = tail.load();
            Node* next = last->next.load();
            if (last != tail.load())
                continue;
            if (next) {
                tail.compare_exchange_strong(last, next); // help a lagging tail
                continue;
            }
            if (last->next.compare_exchange_strong(next, node)) {
                tail.compare_exchange_strong(last, node);
                return;
            }
        }
    }

    // Consumer only. False when the queue is empty.
    bool dequeue(T& value)
    {
        Node* first = head.load();
        Node* next = nullptr;
        do {
            next = first->next.load();
            if (!next) {
                reclaim();
                return false;
            }
            // Head must never pass tail, or a retired node could still be the tail.
            Node* last = tail.load();
            if (first == last)
                tail.compare_exchange_strong(last, next);
        } while (!head.compare_exchange_strong(first, next));
        value = std::move(next->value);
        next->value = T();
        first->retiredNext = retired;
        retired = first;
        reclaim();
        return true;
    }

    bool isEmpty() const
    {
        Visit visit(visitors);
        return head.load()->next.load() == nullptr;
    }

private:
    struct Node
    {
        Node() = default;
        explicit Node(T v) : value(std::move(v)) {}

        std::atomic<Node*> next{nullptr};
        Node* retiredNext = nullptr; // consumer only
        T value{};
    };

    // Counts a thread that may dereference nodes without being the consumer.
    class Visit
    {
    public:
        explicit Visit(std::atomic<int>& count) : count(count) { count.fetch_add(1); }
        ~Visit() { count.fetch_sub(1); }
        Visit(const Visit&) = delete;
        Visit& operator=(const Visit&) = delete;

    private:
        std::atomic<int>& count;
    };

    // A visitor that arrives after a node was retired only reaches nodes from
    // the current head or tail on, so with no visitor inside nobody can still
    // hold a retired node.
    void reclaim()
    {
        if (retired && visitors.load() == 0)
            freeRetired();
    }

    void freeRetired()
    {
        while (retired) {
            Node* node = retired;
            retired = node->retiredNext;
            delete node;
        }
    }

    static void freeChain(Node* node)
    {
        while (node) {
            Node* next = node->next.load();
            delete node;
            node = next;
        }
    }

    std::atomic<Node*> head;
    std::atomic<Node*> tail;
    mutable std::atomic<int> visitors{0};
    Node* retired = nullptr; // consumer only
};
