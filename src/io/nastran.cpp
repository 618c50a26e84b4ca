// NASTRAN bulk-data decks: large-field GRID* cards, free-field element cards.
#include "io/io_private.h"

#include <algorithm>
#include <meshutil/io.h>

namespace qx7::meshutil
{

namespace
{

/// "%16E": coordinates in the 16-column fields of GRID* cards.
constexpr io::num_format nastran_real = {'E', 16, 6};

constexpr char nastran_banner[] = "$ QX7 MeshUtil(R) NASTRAN exporter\nBEGIN BULK\n"
                                  "$----------------------------------------\n"
                                  "$ Referenced Material Records -----------\n"
                                  "$ Material Record :    ------------------\n"
                                  "$ Description of Material :   -----------\n"
                                  "MAT1    1       0.                 0.  0.\n"
                                  "$----------------------------------------\n"
                                  "$                GRID POINTS             \n"
                                  "$----------------------------------------\n";
constexpr char nastran_elements_banner[] = "$----------------------------------------\n"
                                           "$                 ELEMENTS               \n"
                                           "$----------------------------------------\n";

/// Rows a group of type t takes from a connectivity of `rows` rows.
std::size_t group_rows(int t, std::size_t rows) noexcept
{
    if (t == EL_FACE_MIX) return std::min<std::size_t>(rows, 4);
    if (t == EL_SOLID_MIX) return std::min<std::size_t>(rows, 20);
    return std::min<std::size_t>(rows, io::is_element_type(t) ? nbr_nodes(element_type(t)) : 0);
}

/// Writes one free-field element card: "NAME,EID,PID" then ",%d" per node (1-based), the line
/// broken by ",+C\n+C" before a node whenever the field counter (3 after the property) is a
/// multiple of 9.
char* write_card(char* p, const io::element_layout& L, int id, int pid, const unsigned* e) noexcept
{
    std::size_t n = std::strlen(L.keyword);
    std::memcpy(p, L.keyword, n);
    p += n;
    *p++ = ',';
    p = io::format_int(p, id);
    *p++ = ',';
    p = io::format_int(p, pid);
    unsigned field = 3;
    for (unsigned k = 0; k < L.count; ++k)
    {
        if (field % 9 == 0)
        {
            std::memcpy(p, ",+C\n+C", 6);
            p += 6;
            field = 1;
        }
        *p++ = ',';
        p = io::format_int(p, int(e[L.nodes[k]] + 1));
        ++field;
    }
    *p++ = '\n';
    return p;
}

} // namespace

int NASTRAN_output(const char* filename, const dense2D<double>& pos,
                   const dense2D<unsigned>& connectM, const dense1D<unsigned>& first,
                   const dense1D<int>& types, const dense1D<unsigned>& PIDs) noexcept
{
    if (connectM.empty()) return 0;
    io::file_handle file(filename, "w");
    if (!file) return -1;
    const std::size_t dim = pos.rows();
    if (dim != 2 && dim != 3) return -2;
    if (types.size() + 1 != first.size()) return -5;
    if (PIDs.size() != connectM.cols()) return -6;
    for (std::size_t k = 0; k < types.size(); ++k)
    {
        if (first[k] > first[k + 1] || first[k + 1] > connectM.cols()) return -4;
        const int t = types[k];
        const std::size_t want = io::is_element_type(t) ? nbr_nodes(element_type(t)) : 0;
        if (group_rows(t, connectM.rows()) != want) return -3;
    }

    io::text_writer out(file.get());
    out.text(nastran_banner, sizeof nastran_banner - 1);
    for (std::size_t j = 0; j < pos.cols(); ++j)
    {
        const double* x = pos.col(j);
        char* p = out.claim(64 + 3 * io::max_number_chars);
        std::memcpy(p, "GRID*   ", 8);
        p = io::format_int(p + 8, int(j + 1), 16);
        std::memset(p, ' ', 16);
        p = io::format_double(p + 16, x[0], nastran_real);
        p = io::format_double(p, x[1], nastran_real);
        std::memcpy(p, "*C\n*C      ", 11);
        p = io::format_double(p + 11, dim == 3 ? x[2] : 0.0, nastran_real);
        *p++ = '\n';
        out.commit(p);
    }
    out.text(nastran_elements_banner, sizeof nastran_elements_banner - 1);

    for (std::size_t k = 0; k < types.size(); ++k)
    {
        const int t = types[k];
        const bool mixed = t == EL_FACE_MIX || t == EL_SOLID_MIX;
        const io::element_layout* L = io::layout_of(io::nastran_layouts, t);
        if (!mixed && !L) continue;
        for (std::size_t j = first[k]; j < first[k + 1]; ++j)
        {
            const unsigned* e = connectM.col(j);
            const io::element_layout& C =
                mixed ? io::nastran_layouts[column_shape(element_type(t), e)] : *L;
            char* p = out.claim(400);
            out.commit(write_card(p, C, int(j + 1), int(PIDs[j]), e));
        }
    }
    out.text("ENDDATA\n");
    bool written = out.finish();
    return file.close() && written ? 0 : -1;
}

int NASTRAN_output(const char* filename, const dense2D<double>& pos,
                   const dense2D<unsigned>& connectM, element_type FE_type) noexcept
{
    dense1D<unsigned> first, PIDs;
    dense1D<int> types;
    if (!first.resize(2) || !types.resize(1, int(FE_type)) || !PIDs.resize(connectM.cols(), 1))
        return -199;
    first[0] = 0;
    first[1] = unsigned(connectM.cols());
    return NASTRAN_output(filename, pos, connectM, first, types, PIDs);
}

int NASTRAN_output(const char* filename, const dense2D<double>& pos,
                   const dense2D<unsigned>& connectM1, const dense2D<unsigned>& connectM2,
                   element_type FE_type1, element_type FE_type2) noexcept
{
    const dense2D<unsigned>* mats[2] = {&connectM1, &connectM2};
    const element_type ts[2] = {FE_type1, FE_type2};
    std::size_t rows = 0, cols = 0;
    for (const dense2D<unsigned>* m : mats)
        if (!m->empty())
        {
            rows = std::max(rows, m->rows());
            cols += m->cols();
        }

    dense2D<unsigned> all;
    dense1D<unsigned> first, PIDs;
    dense1D<int> types;
    if (!all.resize(rows, cols, undefined_index) || !first.reserve(3) || !types.reserve(2) ||
        !PIDs.resize(cols))
        return -199;
    first.push_back(0);
    std::size_t j0 = 0;
    for (unsigned g = 0; g < 2; ++g)
    {
        const dense2D<unsigned>& m = *mats[g];
        if (m.empty()) continue;
        for (std::size_t j = 0; j < m.cols(); ++j, ++j0)
        {
            std::memcpy(all.col(j0), m.col(j), m.rows() * sizeof(unsigned));
            PIDs[j0] = g + 1;
        }
        types.push_back(int(ts[g]));
        first.push_back(unsigned(j0));
    }
    return NASTRAN_output(filename, pos, all, first, types, PIDs);
}

} // namespace qx7::meshutil
