// Helpers shared by the library's families (never installed).
#pragma once

#include <cstddef>
#include <cstdint>
#include <meshutil/elements.h>

namespace qx7::meshutil::detail
{

/// Power-of-two table capacity of at least 1.25 x n (and at least 16), for open addressing with
/// linear probing or for bucket heads.
inline std::size_t hash_capacity(std::size_t n) noexcept
{
    std::size_t want = n + n / 4 + 1, cap = 16;
    while (cap < want)
        cap <<= 1;
    return cap;
}

/// 32-bit integer mixer (the murmur3 finaliser).
inline std::uint32_t mix32(std::uint32_t h) noexcept
{
    h ^= h >> 16;
    h *= 0x85ebca6bu;
    h ^= h >> 13;
    h *= 0xc2b2ae35u;
    h ^= h >> 16;
    return h;
}

/// 64-bit integer mixer (the murmur3 finaliser).
inline std::uint64_t mix64(std::uint64_t h) noexcept
{
    h ^= h >> 33;
    h *= 0xff51afd7ed558ccdull;
    h ^= h >> 33;
    h *= 0xc4ceb9fe1a85ec53ull;
    h ^= h >> 33;
    return h;
}

/// True for the linear types and the face and solid mixed types: the shapes whose boundaries,
/// neighbours and local edges the library derives from the local boundary tables.
inline constexpr bool linear_or_mixed(element_type FE_type) noexcept
{
    switch (FE_type)
    {
    case EL_EDGE2:
    case EL_FACE_MIX:
    case EL_TRIA3:
    case EL_QUAD4:
    case EL_SOLID_MIX:
    case EL_TETRA4:
    case EL_PYRAM5:
    case EL_PENTA6:
    case EL_HEXA8:
        return true;
    default:
        return false;
    }
}

/// Empties a matrix without releasing its storage (rows, cols and ld set to 0).
template <class T>
inline void empty_output(dense2D<T>& M) noexcept
{
    M.clear();
}

} // namespace qx7::meshutil::detail
