// Element types, their local boundary tables, and index and ID utilities.
#pragma once

#include <meshutil/containers.h>
#include <meshutil/export.h>

namespace qx7::meshutil
{

// ------------------------------------------------------------------------------------ element
// types

/// Shape of the columns of a connectivity matrix. The three mixed types pack several shapes in a
/// fixed number of rows, the unused rows holding ~0u: EL_EDGE_MIX (2 rows), EL_FACE_MIX (4 rows;
/// ~0u in row 3 marks a triangle), EL_SOLID_MIX (8 rows; the first ~0u in row 4, 5 or 6 marks a
/// tetrahedron, pyramid or wedge, none a hexahedron). The underlying type is fixed (int), so a value
/// outside 0 to 20 is representable: the lookups answer 0 for it and the checks reject it.
enum element_type : int
{
    EL_UNKNOWN = 0,
    EL_NODE = 1,
    EL_EDGE_MIX = 2,
    EL_EDGE2 = 3,
    EL_EDGE3 = 4,
    EL_FACE_MIX = 5,
    EL_TRIA3 = 6,
    EL_QUAD4 = 7,
    EL_TRIA6 = 8,
    EL_QUAD8 = 9,
    EL_QUAD9 = 10,
    EL_SOLID_MIX = 11,
    EL_TETRA4 = 12,
    EL_TETRA10 = 13,
    EL_PYRAM5 = 14,
    EL_PYRAM14 = 15,
    EL_PENTA6 = 16,
    EL_PENTA18 = 17,
    EL_HEXA8 = 18,
    EL_HEXA20 = 19,
    EL_HEXA27 = 20
};

/// Number of element types (values 0 to 20).
inline constexpr unsigned nbr_element_types = 21;

/// Topological dimension of the type (0 to 3); 0 for a value outside 0 to 20.
/// Complexity: O(1).
MESHUTIL_API unsigned element_dim(element_type FE_type) noexcept;

/// Row count of a connectivity of the type (27 for EL_HEXA27, 8 for EL_SOLID_MIX); 0 for a value
/// outside 0 to 20. Complexity: O(1).
MESHUTIL_API unsigned nbr_nodes(element_type FE_type) noexcept;

/// Number of vertex nodes; the mixed types count their full row count (EL_SOLID_MIX gives 8).
/// 0 for a value outside 0 to 20. Complexity: O(1).
MESHUTIL_API unsigned nbr_base_nodes(element_type FE_type) noexcept;

/// Number of local boundaries: faces of a solid, edges of a surface element. The edge types give
/// 1 (although their boundaries are two end points) and EL_NODE gives 0. 0 for a value outside 0 to
/// 20. Complexity: O(1).
MESHUTIL_API unsigned nbr_boundaries(element_type FE_type) noexcept;

/// Places in one boundary record of the type (rows of a boundary connectivity): 1 for edges, 2 for
/// linear surface elements, 3 for quadratic ones and EL_TETRA4, 4 for the other linear solids and
/// EL_SOLID_MIX, 6 for EL_TETRA10, 8 for EL_HEXA20, 9 for EL_PYRAM14, EL_PENTA18 and EL_HEXA27.
/// 0 for a value outside 0 to 20. Complexity: O(1).
MESHUTIL_API unsigned boundary_record_size(element_type FE_type) noexcept;

/// The plain type a mixed type stands for given the row count of its matrix: EL_FACE_MIX with 3
/// rows is EL_TRIA3, EL_SOLID_MIX with 4, 5 or 6 rows is EL_TETRA4, EL_PYRAM5 or EL_PENTA6. Every
/// other combination returns FE_type unchanged (EL_EDGE_MIX is never replaced).
/// Complexity: O(1).
inline constexpr element_type normalize_type(element_type FE_type, std::size_t rows) noexcept
{
    if (FE_type == EL_FACE_MIX && rows == 3) return EL_TRIA3;
    if (FE_type == EL_SOLID_MIX)
    {
        if (rows == 4) return EL_TETRA4;
        if (rows == 5) return EL_PYRAM5;
        if (rows == 6) return EL_PENTA6;
    }
    return FE_type;
}

/// The shape of one column: for EL_FACE_MIX (4 rows) EL_TRIA3 when row 3 is ~0u, else EL_QUAD4; for
/// EL_SOLID_MIX (8 rows) EL_TETRA4, EL_PYRAM5 or EL_PENTA6 when row 4, 5 or 6 (tested in that
/// order) is ~0u, else EL_HEXA8; EL_EDGE_MIX gives EL_EDGE2; any other type is returned as it is.
/// Precondition: the type is normalised and the column has nbr_nodes(FE_type) rows.
/// Complexity: O(1).
inline constexpr element_type column_shape(element_type FE_type, const unsigned* column) noexcept
{
    if (FE_type == EL_FACE_MIX) return column[3] == undefined_index ? EL_TRIA3 : EL_QUAD4;
    if (FE_type == EL_SOLID_MIX)
    {
        if (column[4] == undefined_index) return EL_TETRA4;
        if (column[5] == undefined_index) return EL_PYRAM5;
        if (column[6] == undefined_index) return EL_PENTA6;
        return EL_HEXA8;
    }
    if (FE_type == EL_EDGE_MIX) return EL_EDGE2;
    return FE_type;
}

// ------------------------------------------------------------------------------------ local
// boundaries

/// Local boundaries of one linear shape: boundary k is the list nodes[k][0 .. size[k]-1] of local
/// node numbers, ~0u in the unused places. The order fixes the orientation: all boundaries of an
/// element turn alike, outwards for a tetrahedron of positive volume, inwards for a pyramid, wedge
/// or hexahedron whose bottom turns counter-clockwise seen from the top; edges of triangles and
/// quadrangles run in the sense of the node order.
struct local_boundaries
{
    unsigned count;       ///< number of boundaries (2 end points for an edge)
    unsigned record_size; ///< places in a record of this shape (4 for faces of mixed solids)
    unsigned size[6];     ///< defined nodes of boundary k
    unsigned nodes[6][4]; ///< local nodes of boundary k
};

namespace detail
{
inline constexpr unsigned U_ = undefined_index;
} // namespace detail

/// End points of an edge: boundary k is the end opposite node k.
inline constexpr local_boundaries edge_boundaries = {
    2,
    1,
    {1, 1},
    {{1, detail::U_, detail::U_, detail::U_}, {0, detail::U_, detail::U_, detail::U_}}};
/// Edges of a triangle: edge k is opposite node k.
inline constexpr local_boundaries tria_boundaries = {3,
                                                     2,
                                                     {2, 2, 2},
                                                     {{1, 2, detail::U_, detail::U_},
                                                      {2, 0, detail::U_, detail::U_},
                                                      {0, 1, detail::U_, detail::U_}}};
/// Edges of a quadrangle: edge k starts at node k.
inline constexpr local_boundaries quad_boundaries = {4,
                                                     2,
                                                     {2, 2, 2, 2},
                                                     {{0, 1, detail::U_, detail::U_},
                                                      {1, 2, detail::U_, detail::U_},
                                                      {2, 3, detail::U_, detail::U_},
                                                      {3, 0, detail::U_, detail::U_}}};
/// Faces of a tetrahedron: face k is opposite node k.
inline constexpr local_boundaries tetra_boundaries = {
    4,
    3,
    {3, 3, 3, 3},
    {{1, 2, 3, detail::U_}, {2, 0, 3, detail::U_}, {1, 3, 0, detail::U_}, {2, 1, 0, detail::U_}}};
/// Faces of a pyramid (base 0-3, apex 4): face k < 4 is node k, the apex, node (k+1) mod 4.
inline constexpr local_boundaries pyram_boundaries = {5,
                                                      4,
                                                      {3, 3, 3, 3, 4},
                                                      {{0, 4, 1, detail::U_},
                                                       {1, 4, 2, detail::U_},
                                                       {2, 4, 3, detail::U_},
                                                       {3, 4, 0, detail::U_},
                                                       {0, 1, 2, 3}}};
/// Faces of a wedge (triangles 0-1-2 and 3-4-5, node 3 above node 0).
inline constexpr local_boundaries penta_boundaries = {
    5,
    4,
    {3, 3, 4, 4, 4},
    {{0, 1, 2, detail::U_}, {3, 5, 4, detail::U_}, {2, 1, 4, 5}, {0, 2, 5, 3}, {1, 0, 3, 4}}};
/// Faces of a hexahedron (quadrangles 0-1-2-3 and 4-5-6-7, node 4 above node 0).
inline constexpr local_boundaries hexa_boundaries = {
    6,
    4,
    {4, 4, 4, 4, 4, 4},
    {{0, 3, 7, 4}, {1, 5, 6, 2}, {0, 4, 5, 1}, {3, 2, 6, 7}, {0, 1, 2, 3}, {4, 7, 6, 5}}};

/// The boundary table of a shape: the linear types and their quadratic versions (whose tables
/// apply to the base nodes) get the table of their linear shape; any other type, mixed types
/// included (use column_shape first), gets nullptr. Complexity: O(1).
inline constexpr const local_boundaries* boundaries_of(element_type shape) noexcept
{
    switch (shape)
    {
    case EL_EDGE2:
    case EL_EDGE3:
        return &edge_boundaries;
    case EL_TRIA3:
    case EL_TRIA6:
        return &tria_boundaries;
    case EL_QUAD4:
    case EL_QUAD8:
    case EL_QUAD9:
        return &quad_boundaries;
    case EL_TETRA4:
    case EL_TETRA10:
        return &tetra_boundaries;
    case EL_PYRAM5:
    case EL_PYRAM14:
        return &pyram_boundaries;
    case EL_PENTA6:
    case EL_PENTA18:
        return &penta_boundaries;
    case EL_HEXA8:
    case EL_HEXA20:
    case EL_HEXA27:
        return &hexa_boundaries;
    default:
        return nullptr;
    }
}

// ------------------------------------------------------------------------------------ IDs

/// The library's version, "4.7.2.1".
MESHUTIL_API const char* version() noexcept;

/// True when IDs is empty or max_ID is ~0u, or when every entry is ~0u or below max_ID. ~0u is
/// accepted anywhere. The scan stops at the first failing entry. Complexity: O(size).
MESHUTIL_API bool check_IDs(const dense1D<unsigned>& IDs, unsigned max_ID) noexcept;

/// As the vector form, over every entry of every column. Complexity: O(rows x cols).
MESHUTIL_API bool check_IDs(const dense2D<unsigned>& connectM, unsigned max_ID) noexcept;

/// Conformity of a connectivity to a type. An empty matrix conforms. The type is normalised by
/// row count (normalize_type). EL_FACE_MIX conforms with 4 rows and, when max_ID is not ~0u, when
/// every entry is below max_ID except a ~0u in row 3 (a triangle). EL_SOLID_MIX conforms with 8
/// rows and, when max_ID is not ~0u, when in each column the first ~0u in row 4, 5 or 6 is followed
/// by ~0u only and every entry before it is below max_ID. Any other type needs nbr_nodes(type)
/// rows and, when max_ID is not ~0u, every entry below max_ID (~0u never allowed). The scan stops
/// at the first failing column. A type outside 0 to 20 never conforms (unless the matrix is empty).
/// Complexity: O(rows x cols).
MESHUTIL_API bool check_IDs(const dense2D<unsigned>& connectM, element_type FE_type,
                            unsigned max_ID) noexcept;

/// Largest entry other than ~0u, starting from 0: a vector of ~0u only gives 0 (indistinguishable
/// from a largest ID of 0); an empty vector gives ~0u. Complexity: O(size).
MESHUTIL_API unsigned max_ID(const dense1D<unsigned>& IDs) noexcept;

/// As the vector form, over every entry of every column. Complexity: O(rows x cols).
MESHUTIL_API unsigned max_ID(const dense2D<unsigned>& connectM) noexcept;

/// Replaces every entry x below new_IDs.size() by new_IDs[x] (which may be ~0u); ~0u and entries
/// not below the size stay. new_IDs must not share storage with indices.
/// Complexity: O(size).
MESHUTIL_API void change_indices(dense1D<unsigned>& indices,
                                 const dense1D<unsigned>& new_IDs) noexcept;

/// As the vector form, over every entry of every column. Complexity: O(rows x cols).
MESHUTIL_API void change_indices(dense2D<unsigned>& connectM,
                                 const dense1D<unsigned>& new_IDs) noexcept;

/// Adds shift (wrapping unsigned arithmetic: a negative shift subtracts) to every entry that is
/// not ~0u. @return 0. Complexity: O(size).
MESHUTIL_API int shift_indices(dense1D<unsigned>& indices, int shift) noexcept;

/// Adds shift to the entries of a connectivity: for EL_FACE_MIX and EL_SOLID_MIX every entry that
/// is not ~0u; for any other type every entry, ~0u included (plain types are not expected to hold
/// ~0u, and the loop stays unconditional). @return 0. Complexity: O(rows x cols).
MESHUTIL_API int shift_indices(dense2D<unsigned>& connectM, int shift,
                               element_type FE_type) noexcept;

/// Matches two lists of IDs. B_in_A[j] is the position in A of the ID B[j], A_in_B[i] the
/// position in B of A[i] (a later position of B wins), ~0u where there is none. An ID repeated in
/// A keeps its last position; ~0u never matches.
/// @param[in]  A, B    lists of IDs.
/// @param[out] B_in_A  B.size(); resized and filled with ~0u first.
/// @param[out] A_in_B  A.size(); resized and filled with ~0u first.
/// @return 0; -199 when memory cannot be had (outputs emptied).
/// Complexity: O(|A| + |B|) expected time, O(|A|) extra memory (a flat hash table).
MESHUTIL_API int get_IDs(const dense1D<unsigned>& A, const dense1D<unsigned>& B,
                         dense1D<unsigned>& B_in_A, dense1D<unsigned>& A_in_B) noexcept;

/// Matches the columns of two element lists. A column of B matches a column of A holding the same
/// nodes: with strict_order, in the same order; otherwise forming the same cycle in either sense
/// from any start (both rotated to put their largest node first, then compared; then the
/// candidate reversed, rotated again and compared once more). Candidates are keyed by the sum in
/// 64-bit arithmetic of ((x XOR 2166136261) * 16777619) in 32-bit arithmetic over the entries x;
/// among several matching columns of A the lowest column wins.
/// @param[out] B_in_A  B.cols(); column of A matching column j of B, or ~0u.
/// @param[out] A_in_B  A.cols(); column of B matched with column i of A (the last wins), or ~0u.
/// @return 0; -2 when A and B have different row counts (outputs emptied); -199 when memory
///         cannot be had (outputs emptied).
/// Complexity: O(rows x (cols(A) + cols(B))) expected time, O(cols(A)) extra memory.
MESHUTIL_API int get_IDs(const dense2D<unsigned>& A, const dense2D<unsigned>& B,
                         dense1D<unsigned>& B_in_A, dense1D<unsigned>& A_in_B,
                         bool strict_order = false) noexcept;

/// Stable counting sort of positions by value, in offset form. order lists the positions of values
/// sorted by value (equal values in increasing position); first[v] is where value v starts in
/// order and first[m+1] = values.size(), with m = max_ID(values), so first has m + 2 entries. Empty
/// values give order empty and first = (0). Values equal to ~0u have no slot: they are listed at
/// the end of order, after first[m+1], which then counts the other values only.
/// @return 0; -199 when memory cannot be had (both outputs emptied).
/// Complexity: O(size + m) time and memory.
MESHUTIL_API int get_sorted_order(const dense1D<unsigned>& values, dense1D<unsigned>& order,
                                  dense1D<unsigned>& first) noexcept;

/// Moves every value v[i] to position perm[i] (new[perm[i]] = old[i]); positions no entry of perm
/// reaches keep their value; entries of perm that are ~0u, out of range or equal to i are skipped.
/// Only the first min(v.size(), perm.size()) entries of perm are used. v is updated in place (its
/// storage is kept).
/// @return 0; -199 when memory cannot be had (v unchanged). Complexity: O(size) time and memory.
MESHUTIL_API int permutation(dense1D<unsigned>& v, const dense1D<unsigned>& perm) noexcept;

/// As the unsigned form, for a vector of doubles.
MESHUTIL_API int permutation(dense1D<double>& v, const dense1D<unsigned>& perm) noexcept;

/// Enlarges the box [box_min, box_max] to hold every node of pos (a 2-row matrix): for each
/// coordinate x, box_min becomes x when x is not at least box_min (so a NaN coordinate is taken),
/// box_max becomes x when x is greater. The box never shrinks: start from an inverted box.
/// @return 0; -1 when pos does not have exactly 2 rows. Complexity: O(cols).
MESHUTIL_API int inc_bounding_box(const dense2D<double>& pos, vector_fixed<double, 2>& box_min,
                                  vector_fixed<double, 2>& box_max) noexcept;

/// 3-D form: pos must have exactly 3 rows, else -1.
MESHUTIL_API int inc_bounding_box(const dense2D<double>& pos, vector_fixed<double, 3>& box_min,
                                  vector_fixed<double, 3>& box_max) noexcept;

/// As above over the listed nodes only, in list order; ~0u entries name no node and are skipped.
/// @return 0 (nothing done) when indices is empty; -1 when pos does not have 2 rows; -2 when an
///         entry is neither ~0u nor below pos.cols() (checked before the box changes); else 0.
/// Complexity: O(size of indices).
MESHUTIL_API int inc_bounding_box(const dense2D<double>& pos, const dense1D<unsigned>& indices,
                                  vector_fixed<double, 2>& box_min,
                                  vector_fixed<double, 2>& box_max) noexcept;

/// 3-D node-list form (pos with 3 rows).
MESHUTIL_API int inc_bounding_box(const dense2D<double>& pos, const dense1D<unsigned>& indices,
                                  vector_fixed<double, 3>& box_min,
                                  vector_fixed<double, 3>& box_max) noexcept;

/// As the node-list form over the distinct nodes of connectM in order of first appearance (~0u
/// skipped). @return as the node-list form; -199 when memory cannot be had.
/// Complexity: O(rows x cols + cols(pos)).
MESHUTIL_API int inc_bounding_box(const dense2D<double>& pos, const dense2D<unsigned>& connectM,
                                  vector_fixed<double, 2>& box_min,
                                  vector_fixed<double, 2>& box_max) noexcept;

/// 3-D connectivity form (pos with 3 rows).
MESHUTIL_API int inc_bounding_box(const dense2D<double>& pos, const dense2D<unsigned>& connectM,
                                  vector_fixed<double, 3>& box_min,
                                  vector_fixed<double, 3>& box_max) noexcept;

} // namespace qx7::meshutil
