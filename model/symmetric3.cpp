#include "model/symmetric3.h"

#include <cmath>

namespace kestralum {

void symmetric_eigen3(const double* s, double* values, double* vectors) {
    double a[3][3] = {{s[0], s[3], s[5]}, {s[3], s[1], s[4]}, {s[5], s[4], s[2]}};
    double v[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};  // rows: the vectors
    for (int sweep = 0; sweep < 10; ++sweep) {
        const double off = std::abs(a[0][1]) + std::abs(a[1][2]) + std::abs(a[0][2]);
        const double size = std::abs(a[0][0]) + std::abs(a[1][1]) + std::abs(a[2][2]) + off;
        if (!(off > 1e-17 * size)) break;
        for (int p = 0; p < 2; ++p)
            for (int q = p + 1; q < 3; ++q) {
                if (a[p][q] == 0) continue;
                const double theta = (a[q][q] - a[p][p]) / (2 * a[p][q]);
                const double t = (theta >= 0 ? 1 : -1) / (std::abs(theta) + std::sqrt(theta * theta + 1));
                const double c = 1 / std::sqrt(t * t + 1), d = t * c;
                a[p][p] -= t * a[p][q];
                a[q][q] += t * a[p][q];
                a[p][q] = a[q][p] = 0;
                const int r = 3 - p - q;
                const double rp = a[r][p], rq = a[r][q];
                a[r][p] = a[p][r] = c * rp - d * rq;
                a[r][q] = a[q][r] = d * rp + c * rq;
                for (int k = 0; vectors && k < 3; ++k) {
                    const double vp = v[p][k], vq = v[q][k];
                    v[p][k] = c * vp - d * vq;
                    v[q][k] = d * vp + c * vq;
                }
            }
    }
    for (int k = 0; k < 3; ++k) {
        values[k] = a[k][k];
        for (int c = 0; vectors && c < 3; ++c) vectors[3 * k + c] = v[k][c];
    }
}

}  // namespace kestralum
