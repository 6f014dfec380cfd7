! Fortran interface to the by-reference entry points of k5x.
module k5x
  use iso_c_binding
  implicit none
end module k5x
