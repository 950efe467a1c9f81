# Spack recipe of Pavex. UNTESTED: written by the book, never run by Spack.
#
#   spack repo add packaging/spack
#   spack dev-build --source-path . pavex@0.2.0 +mpi

from spack.package import *


class Pavex(CMakePackage):
    """Matrix aggregation layer of a distributed direct sparse linear solver: collects the pieces
    of a distributed matrix into the whole one, on one process or on all."""

    license("Apache-2.0")

    version("0.2.0")

    variant("shared", default=True, description="Build shared libraries")
    variant("mpi", default=True, description="Build the communicator over MPI")
    variant("tools", default=False, description="Build the pavex command")

    depends_on("cxx", type="build")
    depends_on("cmake@3.25:", type="build")
    depends_on("mpi", when="+mpi")
    depends_on("cli11", type="build", when="+tools")
    depends_on("eigen@3.3:3", type="build", when="+tools")
    depends_on("nlohmann-json", type="build", when="+tools")

    def cmake_args(self):
        return [
            self.define_from_variant("BUILD_SHARED_LIBS", "shared"),
            self.define_from_variant("PAVEX_MPI", "mpi"),
            self.define_from_variant("PAVEX_TOOLS", "tools"),
            self.define("PAVEX_TESTS", False),
            self.define("PAVEX_BENCH", False),
            self.define("PAVEX_EXAMPLES", False),
            self.define("PAVEX_UMFPACK", False),
            self.define("PAVEX_CAIRO", False),
            self.define("PAVEX_WERROR", False),
        ]
