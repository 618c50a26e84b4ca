// The node detector: a k-d tree over a set of nodes for nearest-node and box queries.
#pragma once

#include <meshutil/containers.h>
#include <meshutil/elements.h>
#include <meshutil/export.h>

namespace qx7::meshutil
{

namespace detail
{
template <unsigned D>
struct kd_tree;
} // namespace detail

/// Spatial search over nodes of a coordinate matrix: nearest inserted node to a point or to a
/// node, and inserted nodes in a closed box.
///
/// A point k-d tree of dimension 2 or 3 (the row count of pos at reinit): one tree node per
/// inserted node, 12 bytes each (mesh index, child below, child greater or equal on the splitting
/// axis) in one flat table, axes cycling x, y(, z) from the root, no buckets and no rebalancing.
/// Every insert shuffles its list with a fresh std::mt19937 seeded with 1 (a mask-and-reject
/// Fisher-Yates pass), so sorted inputs still give logarithmic expected depth and equal inputs
/// always give the same tree and the same tie-breaks. An empty tree is built top-down, level by
/// level; the result is the same tree as inserting the shuffled nodes one by one.
///
/// The coordinates are never copied: the detector keeps a pointer to pos and reads it at every
/// insert and query, so pos must outlive the detector and keep the inserted columns unchanged;
/// columns appended later may be inserted. Copies share pos but not the tree. The same node may
/// be inserted several times (each insertion is a tree node). There is no removal, so no free
/// list of table columns is kept.
///
/// Besides the tree, a detector of 4096 tree nodes or more keeps a cell index: a uniform grid
/// over the inserted nodes' bounding box, about two nodes per cell, listing each tree node's mesh
/// index and pre-order rank (8 bytes per tree node plus 4 per cell; no coordinates). It answers
/// a query without walking the tree only when its answer is provably the walk's: for a nearest
/// query, a single mesh index at the smallest distance (computed as the walk computes it) lying
/// clear, by far more than rounding, of the walk's box and pruning tests; for a box query, any
/// box, since the walk visits every node inside it, the hits being listed in the walk's
/// pre-order. Ties, non-finite coordinates (a NaN node switches the index off for good), points
/// far outside the nodes' box and crowded cells are left to the tree, so results never depend on
/// the index. An insert into an indexed tree rebuilds the index once the nodes it lacks reach an
/// eighth of those it lists; until then the tree answers alone.
///
/// Queries are const and may run concurrently; a 2-D query on a 3-D detector uses z = 0 (a 2-D
/// box becomes the box with z in [0, 0]), a 3-D query on a 2-D detector drops z. Nothing is
/// thrown.
class MESHUTIL_API node_detector
{
public:
    /// An empty detector. Complexity: O(1).
    node_detector() noexcept = default;
    /// reinit(pos); its code is dropped (an unsuitable pos gives an empty detector).
    explicit node_detector(const dense2D<double>& pos) noexcept;
    /// reinit(pos, nodes); its code is dropped.
    node_detector(const dense2D<double>& pos, const dense1D<unsigned>& nodes) noexcept;
    /// reinit(pos, connectM); its code is dropped.
    node_detector(const dense2D<double>& pos, const dense2D<unsigned>& connectM) noexcept;
    /// reinit(pos, connectM1, connectM2); its code is dropped.
    node_detector(const dense2D<double>& pos, const dense2D<unsigned>* connectM1,
                  const dense2D<unsigned>* connectM2) noexcept;
    /// Starts empty, then assigns from other (empty when memory cannot be had).
    node_detector(const node_detector& other) noexcept;
    /// Destroys this tree and, unless other holds this very tree, makes a deep copy of other's
    /// (same pos pointer, copied node table); empty when memory cannot be had.
    /// Complexity: O(other.size()).
    node_detector& operator=(const node_detector& other) noexcept;
    /// clear().
    ~node_detector();

    /// Empties the detector, then builds a tree over all columns of pos.
    /// @param[in] pos  2 or 3 x nbr_nodes coordinates (kept by pointer).
    /// @return 0; -1 pos without 2 or 3 rows (the detector stays empty); -199 memory.
    /// Complexity: O(n log n) expected time, O(n) memory.
    int reinit(const dense2D<double>& pos) noexcept;
    /// Builds a tree over the listed nodes (~0u entries pass the check and are skipped).
    /// Both checks come before the detector is emptied, so on -1 or -2 it keeps its content.
    /// @param[in] pos    2 or 3 x nbr_nodes coordinates (kept by pointer).
    /// @param[in] nodes  node indices below pos.cols(), or ~0u.
    /// @return 0; -1 pos without 2 or 3 rows; -2 an entry not below pos.cols(); -199 memory.
    /// Complexity: O(m log m) expected time for m listed nodes.
    int reinit(const dense2D<double>& pos, const dense1D<unsigned>& nodes) noexcept;
    /// Builds a tree over the distinct nodes of connectM (order of first appearance).
    /// @return as reinit(pos, nodes). Complexity: O(entries + m log m).
    int reinit(const dense2D<double>& pos, const dense2D<unsigned>& connectM) noexcept;
    /// Builds a tree over the distinct nodes of the range [connectM1, connectM2) of consecutive
    /// connectivities; a reversed range returns -3 and leaves the detector as it was.
    /// @return 0; -3 reversed range; -199 memory; else as reinit(pos, nodes).
    int reinit(const dense2D<double>& pos, const dense2D<unsigned>* connectM1,
               const dense2D<unsigned>* connectM2) noexcept;

    /// Adds the listed nodes to the tree in the fixed-seed shuffled order of the list; entries
    /// not below the present pos.cols() are skipped, duplicates are inserted again.
    /// @return the number of tree nodes added (0 on an empty detector; an entry that cannot get
    ///         memory is not added). Complexity: O(m log n) expected time.
    unsigned insert(const dense1D<unsigned>& nodes) noexcept;
    /// Adds the distinct nodes of connectM. @return the number added.
    unsigned insert(const dense2D<unsigned>& connectM) noexcept;

    /// Nearest inserted node to P. Among nodes at equal distance the one met first on the descent
    /// from the root wins (later nodes replace the best only when strictly closer).
    /// @return the mesh index; ~0u when the detector is empty. (The walk keeps its pending
    ///         branches on a stack of 256 entries, then on the heap; should that fail to grow,
    ///         the best node found so far is returned.)
    /// Complexity: O(1) expected time through the cell index for well-spread nodes, O(log n)
    /// expected through the tree.
    unsigned find_closest(const vector_fixed<double, 2>& P) const noexcept;
    /// 3-D point form. @return the mesh index; ~0u when the detector is empty.
    unsigned find_closest(const vector_fixed<double, 3>& P) const noexcept;
    /// Nearest inserted node to node `node` other than `node` itself (which need not be
    /// inserted); another node at distance 0 is returned at once.
    /// @return the mesh index; ~0u when empty, when node is not below pos.cols(), or when no
    ///         other node is inserted.
    unsigned find_closest(unsigned node) const noexcept;

    /// Appends to nodes (not cleared) the inserted nodes in the closed box [Pmin, Pmax], in
    /// pre-order of the tree (node, less side, greater-or-equal side); a node inserted twice is
    /// reported twice; a box with Pmin > Pmax on an axis finds nothing.
    /// Complexity: O(cells covered + hits) through the cell index (up to 512 cells and 256
    /// hits), else O(sqrt(n) + hits) for a well-spread 2-D tree.
    void find_in_box(const vector_fixed<double, 2>& Pmin, const vector_fixed<double, 2>& Pmax,
                     dense1D<unsigned>& nodes) const noexcept;
    /// 3-D box form. Complexity: as the 2-D form, O(n^(2/3) + hits) through the tree.
    void find_in_box(const vector_fixed<double, 3>& Pmin, const vector_fixed<double, 3>& Pmax,
                     dense1D<unsigned>& nodes) const noexcept;

    /// Destroys the tree; the detector becomes empty. Complexity: O(1).
    void clear() noexcept;
    /// Number of tree nodes (duplicates included); 0 when empty.
    unsigned size() const noexcept;

private:
    template <unsigned D>
    int rebuild(const dense2D<double>& pos, const unsigned* list, std::size_t n) noexcept;

    detail::kd_tree<2>* m_tree2 = nullptr;
    detail::kd_tree<3>* m_tree3 = nullptr;
};

} // namespace qx7::meshutil
