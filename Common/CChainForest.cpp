#include "Common/CChainForest.h"

CChainForest::Node CChainForest::End(Node node)
{
    Expose(node);
    while (m_nodes[node].child[TO_END] != NONE)
        node = m_nodes[node].child[TO_END];
    Splay(node); // pays for the way down
    return node;
}

bool CChainForest::Passes(Node node, Node other)
{
    Expose(node);
    Splay(other);
    return node == other || m_nodes[node].parent != NONE; // it is no longer on top of the path
}

void CChainForest::Link(Node node, Node to)
{
    Expose(node);
    m_nodes[node].parent = to;
}

void CChainForest::Cut(Node node)
{
    Expose(node);
    Node& next = m_nodes[node].child[TO_END];
    if (next != NONE)
        m_nodes[next].parent = NONE;
    next = NONE;
}

bool CChainForest::IsTop(Node node) const
{
    const Node parent = m_nodes[node].parent;
    return parent == NONE || (m_nodes[parent].child[TO_END] != node && m_nodes[parent].child[FROM_END] != node);
}

/// Puts a node into its parent's place.
void CChainForest::Rotate(Node node)
{
    const Node parent = m_nodes[node].parent;
    const Node above = m_nodes[parent].parent;
    const ESide side = m_nodes[parent].child[TO_END] == node ? TO_END : FROM_END;
    Node& inner = m_nodes[node].child[side == TO_END ? FROM_END : TO_END];
    if (!IsTop(parent))
        m_nodes[above].child[m_nodes[above].child[TO_END] == parent ? TO_END : FROM_END] = node;
    if (inner != NONE)
        m_nodes[inner].parent = parent;
    m_nodes[parent].child[side] = inner;
    inner = parent;
    m_nodes[parent].parent = node;
    m_nodes[node].parent = above;
}

void CChainForest::Splay(Node node)
{
    while (!IsTop(node)) {
        const Node parent = m_nodes[node].parent;
        if (!IsTop(parent)) {
            const Node above = m_nodes[parent].parent;
            const bool bStraight = (m_nodes[parent].child[TO_END] == node) == (m_nodes[above].child[TO_END] == parent);
            Rotate(bStraight ? parent : node);
        }
        Rotate(node);
    }
}

void CChainForest::Expose(Node node)
{
    Node behind = NONE;
    for (Node top = node; top != NONE; top = m_nodes[top].parent) {
        Splay(top);
        m_nodes[top].child[FROM_END] = behind;
        behind = top;
    }
    Splay(node);
}
