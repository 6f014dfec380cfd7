! A Fortran program using the library through the k5x module, as a Fortran CAM client would:
! blank-padded path, single-precision reals, a capacity-and-count retry. Each result is checked
! against the answer of the double-precision k5x_ function, narrowed; the first difference stops
! the program with an error.
program fortran_client
  use iso_c_binding
  use k5x
  implicit none

  interface
    integer(c_int) function k5x_ijk2abc(ijk, prev, out) bind(C, name='k5x_ijk2abc')
      import :: c_int, c_double
      real(c_double), intent(in) :: ijk(3), prev(3)
      real(c_double), intent(out) :: out(3)
    end function k5x_ijk2abc
    integer(c_int) function k5x_pts2xyz(p, abc, xyz) bind(C, name='k5x_pts2xyz')
      import :: c_int, c_double
      real(c_double), intent(in) :: p(3), abc(3)
      real(c_double), intent(inout) :: xyz(3)
    end function k5x_pts2xyz
    integer(c_int) function k5x_machine_checksum(mode, checksum) &
        bind(C, name='k5x_machine_checksum')
      import :: c_int, c_int32_t
      integer(c_int), value, intent(in) :: mode
      integer(c_int32_t), intent(out) :: checksum
    end function k5x_machine_checksum
    integer(c_int) function k5x_interpolationtable(p0, p1, n, table) &
        bind(C, name='k5x_interpolationtable')
      import :: c_int, c_double, c_ptr
      real(c_double), intent(in) :: p0(6), p1(6)
      integer(c_int), intent(inout) :: n
      type(c_ptr), intent(out) :: table
    end function k5x_interpolationtable
  end interface

  character(len=200) :: path
  integer :: unit, i
  integer(c_int) :: rc, rc_d, status, count, n, sums(8)
  integer(c_int32_t) :: direct
  real(c_float) :: dir(3), abc(3) = 0, xyz(3) = 0, zero(3) = 0
  real(c_float) :: from(6) = 0, to(6) = [60, -30, 90, 0, 30, 40], rows(6, 4) = -7
  real(c_double) :: abc_d(3), xyz_d(3) = 0
  real(c_double), pointer :: table(:, :)
  type(c_ptr) :: table_ptr

  write (path, '(a, i0, a)') '/tmp/k5x-fortran-', getpid(), '.k5x'
  open (newunit=unit, file=trim(path), status='replace', action='write')
  write (unit, '(a)') 'nommachine = DemoHead', 'bati = Z', 'axe = AXE_X, X', 'axe = AXE_Y, Y', &
    'axe = AXE_Z, Z', 'rotation = AXE_C, Z, 0, 1, 0, 0, 300', &
    'rotation = AXE_B, Y, 0, 1, 0, 0, 150', 'outil = -Z', 'lien = AXE_BATI', &
    'piece = X, Y, 0, 0, -500'
  close (unit)

  ! The whole blank-padded variable goes in; the library drops the padding.
  rc = kf5x_machine_def(path, len(path), status)
  if (rc /= 0 .or. status /= 0) error stop 'load through a blank-padded path failed'
  open (newunit=unit, file=trim(path), status='old')
  close (unit, status='delete')

  ! Solve a direction the machine reaches at B 30, C 40 (measured along a tool of length 1).
  call kf5x_set_outil(1.0)
  rc = kf5x_xyz2ijk(zero, [0.0, 30.0, 40.0], dir, status)
  rc = kf5x_ijk2abc(dir, zero, abc, status)
  rc_d = k5x_ijk2abc(real(dir, c_double), real(zero, c_double), abc_d)
  if (rc /= 0 .or. status /= 0 .or. rc_d /= 0) error stop 'direction not solved in travel'
  if (any(abc /= real(abc_d, c_float))) error stop 'angles differ from the double solver'

  ! Convert a point.
  rc = kf5x_pts2xyz([10.0, -20.0, 30.0], abc, xyz, status)
  rc_d = k5x_pts2xyz([10d0, -20d0, 30d0], real(abc, c_double), xyz_d)
  if (rc /= status .or. status /= rc_d .or. any(xyz /= real(xyz_d, c_float))) &
    error stop 'point conversion differs from the double one'

  ! The interpolation table: its count is the number of rows asked for. Ask with no room, then
  ! retry with room for four rows.
  count = 0
  rc = kf5x_interpolationtable(from, to, count, rows, status)
  if (count /= -1 .or. any(rows /= -7)) error stop 'no room: count not negated, or rows copied'
  count = 4
  rc = kf5x_interpolationtable(from, to, count, rows, status)
  n = 4
  rc_d = k5x_interpolationtable(real(from, c_double), real(to, c_double), n, table_ptr)
  call c_f_pointer(table_ptr, table, [6, n])
  if (count /= 4 .or. rc /= status .or. status /= rc_d .or. any(rows /= real(table, c_float))) &
    error stop 'interpolation table differs from the double one'

  ! Checksums of modes 1 to n-1 that exist: 1, 2 and 3.
  n = 6
  call kf5x_machine_checksum(n, sums, count)
  if (count /= 3 .or. sums(1) /= sums(2)) error stop 'not three checksums, or modes 1 and 2 differ'
  do i = 1, 3
    rc_d = k5x_machine_checksum(i, direct)
    if (rc_d /= 1 .or. sums(i) /= direct) error stop 'checksum differs from k5x_machine_checksum'
  end do
  print '(a)', 'fortran_client: all checks passed'

end program fortran_client
