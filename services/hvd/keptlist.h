// A list that only grows: another thread may still read a node that nobody needs any more, so none is
// ever freed. Its length is bounded because like nodes are kept once, and its nodes stay reachable, so
// that a leak checker has nothing to say.
#pragma once

#include <atomic>
#include <cstdlib>

namespace hvd {

/// A list of nodes from malloc that need no destructor and have a pointer `next`.
///
/// Threads    Any; a thread that loses a race throws its own node away.
template <class Node>
class KeptList {
public:
    // Sequentially consistent, because TRC1_Sync adds a node and then reads the levels, while
    // hvdTraceSetLevels stores the levels and then reads the list: one of them must see the other.
    Node *head() const noexcept { return m_head.load(std::memory_order_seq_cst); }

    /// The node for which `same` holds, or else the new one of `make`; null when `make` gives null.
    template <class Same, class Make>
    Node *findOrAdd(Same same, Make make) noexcept {
        Node *made = nullptr;
        for (;;) {
            Node *first = head();
            for (Node *node = first; node; node = node->next)
                if (same(*node)) {
                    std::free(made);
                    return node;
                }
            if (!made && !(made = make()))
                return nullptr;
            made->next = first;
            if (m_head.compare_exchange_strong(first, made, std::memory_order_seq_cst))
                return made;
        }
    }

private:
    std::atomic<Node *> m_head{nullptr};
};

} // namespace hvd
