// Binding of the system LAPACK's packed symmetric eigen-solver.
#include <climits>
#include <meshutil/containers.h>

extern "C" void dspev_(const char* jobz, const char* uplo, const int* n, double* ap, double* w,
                       double* z, const int* ldz, double* work, int* info, std::size_t jobz_len,
                       std::size_t uplo_len);

namespace qx7::lapack
{

int dspev(char jobz, char uplo, long n, double* ap, double* w, double* z, long ldz, double* work,
          long& info) noexcept
{
    if (n < 0 || n > INT_MAX)
    {
        info = -3;
        return int(info);
    }
    if (ldz < 1 || ldz > INT_MAX)
    {
        info = -7;
        return int(info);
    }
    int n32 = int(n), ldz32 = int(ldz), info32 = 0;
    dspev_(&jobz, &uplo, &n32, ap, w, z, &ldz32, work, &info32, 1, 1);
    info = info32;
    return info32;
}

} // namespace qx7::lapack
