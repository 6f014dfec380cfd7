program fortran_client
  use k5x
  implicit none
end program fortran_client
