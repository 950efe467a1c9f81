# Builds a program with the PETSc that pkg-config finds, and its MPI.
PROGRAM = petsc
MPICXX ?= mpicxx

$(PROGRAM): $(SOURCE)/$(PROGRAM).cpp
	$(MPICXX) -std=c++17 $(CPPFLAGS) $$(pkg-config --cflags PETSc) $< -o $@ $(LDFLAGS) \
	  $$(pkg-config --libs PETSc)
