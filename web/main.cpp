// SPDX-License-Identifier: LicenseRef-KT6120

// kt6120-web: answers what the unit's page asks for, behind a web server that speaks FastCGI.
//
//   kt6120-web SOCKET CATALOGUE

#include "fastcgi.h"
#include "page.h"

#include <cstdio>
#include <stdexcept>

namespace
{

// Those that look on hold one each all the time.
constexpr int threads = 16;

} // namespace

int main(int argc, char *argv[])
{
    if (argc != 3) {
        fprintf(stderr, "usage: kt6120-web SOCKET CATALOGUE\n");
        return 2;
    }
    try {
        const Catalogue catalogue(argv[2]);
        Page page(catalogue);
        fastcgi::serve(argv[1], threads,
                       [&page](fastcgi::Exchange &exchange) { page.handle(exchange); });
    } catch (const std::runtime_error &error) {
        fprintf(stderr, "kt6120-web: %s\n", error.what());
    }
    return 1;
}
