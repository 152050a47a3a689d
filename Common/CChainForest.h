#pragma once

#include <array>
#include <cstdint>
#include <vector>

/// Nodes that each link to one other at most, while links come and go: where does the chain of a node end?
///
/// Each call costs the logarithm of the number of nodes on average, however long the chains are (link-cut trees of
/// Sleator and Tarjan: a chain is cut into paths, each a splay tree). Used by one thread at a time.
class CChainForest
{
public:
    using Node = uint32_t;

    explicit CChainForest(uint32_t nNodes) : m_nodes(nNodes) {}

    Node End(Node node);                ///< the node itself when it has no link
    bool Passes(Node node, Node other); ///< the other one is the node, or its chain comes to it
    void Link(Node node, Node to);      ///< of a node without a link, at which the other's chain does not end
    void Cut(Node node);                ///< removes its link, if there is one

private:
    static constexpr Node NONE = UINT32_MAX;
    enum ESide { TO_END, FROM_END }; ///< in a path's tree, the nodes nearer to the end and those further away

    struct SNode
    {
        Node parent = NONE; ///< in the path's tree; of its top: what the whole path links to
        std::array<Node, 2> child = {NONE, NONE};
    };

    bool IsTop(Node node) const;
    void Rotate(Node node);
    void Splay(Node node);  ///< makes it the top of its path's tree
    void Expose(Node node); ///< the same, of the path from it to the end of its chain

    std::vector<SNode> m_nodes;
};
