! A Fortran program using the library through the k5x module, as a Fortran CAM client would:
! blank-padded path, single-precision reals, capacity-and-count retries. Results are checked
! against the double-precision k5x_ functions and against round trips through the chain.
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
    integer(c_int) function k5x_xyz2ijk(xyz, abc, out) bind(C, name='k5x_xyz2ijk')
      import :: c_int, c_double
      real(c_double), intent(in) :: xyz(3), abc(3)
      real(c_double), intent(out) :: out(3)
    end function k5x_xyz2ijk
    integer(c_int) function k5x_xyz2pts(xyz, abc, out) bind(C, name='k5x_xyz2pts')
      import :: c_int, c_double
      real(c_double), intent(in) :: xyz(3), abc(3)
      real(c_double), intent(out) :: out(3)
    end function k5x_xyz2pts
    integer(c_int) function k5x_pts2xyz(p, abc, xyz) bind(C, name='k5x_pts2xyz')
      import :: c_int, c_double
      real(c_double), intent(in) :: p(3), abc(3)
      real(c_double), intent(inout) :: xyz(3)
    end function k5x_pts2xyz
    integer(c_int) function k5x_machine_checksum(mode, checksum) bind(C, name='k5x_machine_checksum')
      import :: c_int, c_int32_t
      integer(c_int), value, intent(in) :: mode
      integer(c_int32_t), intent(out) :: checksum
    end function k5x_machine_checksum
    function k5x_name_machine() bind(C, name='k5x_name_machine')
      import :: c_ptr
      type(c_ptr) :: k5x_name_machine
    end function k5x_name_machine
  end interface

  character(len=200) :: path
  character(len=64) :: pid_text
  integer :: unit, failures, checks, i
  integer(c_int) :: rc, status, count, n, mode, rtcp
  integer(c_int) :: sums(8)
  integer(c_int32_t) :: direct
  real(c_float) :: dir_f(3), prev_f(3), abc_f(3), p_f(3), xyz_f(3), tol_f, length_f
  real(c_float) :: from(6), to(6)
  real(c_float), allocatable :: rows(:, :)
  real(c_double) :: pose(3), origin(3), dir_d(3), abc_d(3), back(3), xyz_d(3), p_d(3)

  failures = 0
  checks = 0

  ! A machine file of our own: the head-head demo machine.
  write (pid_text, '(i0)') getpid()
  path = '/tmp/k5x-fortran-' // trim(pid_text) // '.k5x'
  open (newunit=unit, file=trim(path), status='replace', action='write')
  write (unit, '(a)') 'nommachine = DemoHead'
  write (unit, '(a)') 'coursemaximum = AXE_X, 800'
  write (unit, '(a)') 'courseminimum = AXE_X, -800'
  write (unit, '(a)') 'coursemaximum = AXE_B, 110'
  write (unit, '(a)') 'courseminimum = AXE_B, -110'
  write (unit, '(a)') 'tolerance = 0.05'
  write (unit, '(a)') 'bati = Z, Frame'
  write (unit, '(a)') 'axe = AXE_X, X, Slide X, 200, 200, 200'
  write (unit, '(a)') 'axe = AXE_Y, Y, Slide Y, 200, 200, 200'
  write (unit, '(a)') 'axe = AXE_Z, Z, Ram Z, 180, 180, 180'
  write (unit, '(a)') 'rotation = AXE_C, Z, 0, 1, 0, 0, 300, Fork C, 90, 90, 220'
  write (unit, '(a)') 'rotation = AXE_B, Y, 0, 1, 0, 0, 150, Head B, 90, 90, 220'
  write (unit, '(a)') 'outil = -Z, 0, 0, 0'
  write (unit, '(a)') 'lien = AXE_BATI'
  write (unit, '(a)') 'piece = X, Y, 0, 0, -500'
  write (unit, '(a)') 'position = 0, 0, 0, 0, 0, 0'
  write (unit, '(a)') 'collision = AXE_OUTIL, AXE_PIECE, AXE_BATI'
  close (unit)

  ! The whole blank-padded variable goes in; the library drops the padding.
  rc = kf5x_machine_def(path, len(path), status)
  call check(rc == 0 .and. status == 0, 'load through a blank-padded path')
  call check(c_associated(k5x_name_machine()), 'machine name set after the load')

  call kf5x_get_tol(tol_f)
  call check(tol_f == real(0.05d0, c_float), 'tolerance narrowed')
  length_f = 1.0
  call kf5x_set_outil(length_f)
  call kf5x_get_outil(length_f)
  call check(length_f == 1.0, 'tool length round trip')

  ! Solve a direction the machine reaches at B 30, C 40.
  pose = [0d0, 30d0, 40d0]
  origin = 0d0
  rc = k5x_xyz2ijk(origin, pose, dir_d)
  dir_f = real(dir_d / norm2(dir_d), c_float)
  prev_f = 0.0
  abc_f = 0.0
  rc = kf5x_ijk2abc(dir_f, prev_f, abc_f, status)
  call check(rc == status, 'solver returns the status it stores')
  rc = k5x_ijk2abc(real(dir_f, c_double), real(prev_f, c_double), abc_d)
  call check(status == rc .and. rc == 0, 'solver status as the double solver, in travel')
  call check(all(abs(abc_f - real(abc_d, c_float)) <= 1e-4 * max(1.0, abs(abc_f))), &
             'solver angles narrowed from the double answer')
  rc = k5x_xyz2ijk(origin, real(abc_f, c_double), back)
  call check(all(abs(back / norm2(back) - real(dir_f, c_double)) < 1d-5), &
             'solved angles put the tool along the direction')

  ! Convert a point, and take it back through the chain.
  p_f = [10.0, -20.0, 30.0]
  xyz_f = 0.0
  rc = kf5x_pts2xyz(p_f, abc_f, xyz_f, status)
  call check(rc == status, 'point conversion returns the status it stores')
  xyz_d = 0d0
  rc = k5x_pts2xyz(real(p_f, c_double), real(abc_f, c_double), xyz_d)
  call check(status == rc, 'point conversion status as the double conversion')
  call check(all(abs(xyz_f - real(xyz_d, c_float)) <= 1e-4 * max(1.0, abs(xyz_f))), &
             'point conversion narrowed from the double answer')
  rc = k5x_xyz2pts(xyz_d, real(abc_f, c_double), p_d)
  call check(all(abs(p_d - real(p_f, c_double)) < 1d-6), 'converted point lies on the tip')

  ! Subdivide a move: ask with no room, then retry with the size the library reported.
  rtcp = 0
  call kf5x_set_rtcp(rtcp)
  call check(kf5x_get_rtcp(rtcp) == 0 .and. rtcp == 0, 'rtcp off')
  from = [0.0, 0.0, 0.0, 0.0, 0.0, 0.0]
  to = [60.0, -30.0, 90.0, 0.0, 30.0, 40.0]
  count = 0
  allocate (rows(6, 1))
  rows = -7.0
  rc = kf5x_xyzabc(from, to, count, rows, status)
  call check(count < 0 .and. all(rows == -7.0), 'subdivision without room: negated count, no copy')
  n = -count
  deallocate (rows)
  allocate (rows(6, n))
  count = n
  rc = kf5x_xyzabc(from, to, count, rows, status)
  call check(count == n .and. rc == status, 'subdivision retried with the reported size')
  call check(all(abs(rows(:, n) - to) < 1e-4) .and. all(abs(rows(:, 1) - to / n) < 1e-4), &
             'subdivision rows step evenly to the end')
  deallocate (rows)

  ! The interpolation table: its count is the number of rows asked for.
  count = 0
  allocate (rows(6, 4))
  rows = -7.0
  rc = kf5x_interpolationtable(from, to, count, rows, status)
  call check(count == -1 .and. all(rows == -7.0), 'interpolation table without room')
  count = 4
  rc = kf5x_interpolationtable(from, to, count, rows, status)
  call check(count == 4 .and. rc == status, 'interpolation table filled')
  do i = 1, 4
    call check(all(abs(rows(:, i) - from - (to - from) * i / 4.0) < 1e-4), 'interpolation row')
  end do
  deallocate (rows)
  rtcp = 1
  call kf5x_set_rtcp(rtcp)

  ! Checksums of modes 1 to n-1 that exist: 1, 2 and 3.
  sums = 0
  n = 6
  call kf5x_machine_checksum(n, sums, count)
  call check(count == 3, 'three checksum modes')
  call check(sums(1) == sums(2), 'modes 1 and 2 agree')
  do i = 1, 3
    mode = i
    rc = k5x_machine_checksum(mode, direct)
    call check(rc == 1 .and. sums(i) == direct, 'checksum as the direct call')
  end do
  n = 1
  sums = 5
  call kf5x_machine_checksum(n, sums, count)
  call check(count == 0 .and. all(sums == 5), 'checksum with n = 1 computes nothing')

  mode = 3
  call kf5x_set_mode(mode)
  call check(kf5x_get_mode(mode) == 0 .and. mode == 0, 'mode 3 is refused')

  ! A blank path loads nothing.
  path = ' '
  rc = kf5x_machine_def(path, len(path), status)
  call check(rc == 1 .and. status == 1, 'blank path cannot be opened')

  open (newunit=unit, file='/tmp/k5x-fortran-' // trim(pid_text) // '.k5x', status='old')
  close (unit, status='delete')

  if (failures > 0) then
    print '(a, i0, a, i0, a)', 'fortran_client: ', failures, ' of ', checks, ' checks FAILED'
    error stop 1
  end if
  print '(a, i0, a)', 'fortran_client: all ', checks, ' checks passed'

contains

  subroutine check(ok, what)
    logical, intent(in) :: ok
    character(len=*), intent(in) :: what
    checks = checks + 1
    if (.not. ok) then
      failures = failures + 1
      print '(a, a)', 'FAILED: ', what
    end if
  end subroutine check

end program fortran_client
