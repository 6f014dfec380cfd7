! Fortran interface to the by-reference entry points of k5x.
!
! Every argument is passed by address, reals are default 32-bit reals, and a text is passed as
! a character variable plus its length by value (blank padding is ignored by the library), e.g.
!   character(len=200) :: path = 'machine.k5x'
!   rc = kf5x_machine_def(path, len(path), status)
! Variable-length results use a capacity-and-count integer: pass the capacity of the arrays in
! entries; on return it holds the number of entries, or minus that number when they did not fit
! (nothing is copied then; retry with arrays that large).
module k5x
  use iso_c_binding, only: c_int, c_float, c_char
  implicit none
  private :: c_int, c_float, c_char

  interface
    ! ---- loading, freeing, checksum ----
    integer(c_int) function kf5x_machine_def(text, length, status) &
        bind(C, name='KF5X_MACHINE_DEF')
      import :: c_int, c_char
      character(kind=c_char), intent(in) :: text(*)
      integer(c_int), value, intent(in) :: length
      integer(c_int), intent(out) :: status
    end function kf5x_machine_def

    subroutine kf5x_machine_eval(q) bind(C, name='KF5X_MACHINE_EVAL')
      import :: c_float
      real(c_float), intent(in) :: q(6)
    end subroutine kf5x_machine_eval

    subroutine kf5x_machine_free() bind(C, name='KF5X_MACHINE_FREE')
    end subroutine kf5x_machine_free

    ! Checksums of modes 1 to n-1 that succeed, as 32-bit integers; count of values written.
    subroutine kf5x_machine_checksum(n, values, count) bind(C, name='KF5X_MACHINE_CHECKSUM')
      import :: c_int
      integer(c_int), intent(in) :: n
      integer(c_int), intent(inout) :: values(*)
      integer(c_int), intent(out) :: count
    end subroutine kf5x_machine_checksum

    ! ---- settings ----
    subroutine kf5x_set_tol(v) bind(C, name='KF5X_SET_TOL')
      import :: c_float
      real(c_float), intent(in) :: v
    end subroutine kf5x_set_tol

    subroutine kf5x_get_tol(v) bind(C, name='KF5X_GET_TOL')
      import :: c_float
      real(c_float), intent(out) :: v
    end subroutine kf5x_get_tol

    subroutine kf5x_set_outil(v) bind(C, name='KF5X_SET_OUTIL')
      import :: c_float
      real(c_float), intent(in) :: v
    end subroutine kf5x_set_outil

    subroutine kf5x_get_outil(v) bind(C, name='KF5X_GET_OUTIL')
      import :: c_float
      real(c_float), intent(out) :: v
    end subroutine kf5x_get_outil

    subroutine kf5x_set_mode(v) bind(C, name='KF5X_SET_MODE')
      import :: c_int
      integer(c_int), intent(in) :: v
    end subroutine kf5x_set_mode

    integer(c_int) function kf5x_get_mode(v) bind(C, name='KF5X_GET_MODE')
      import :: c_int
      integer(c_int), intent(out) :: v
    end function kf5x_get_mode

    subroutine kf5x_set_rtcp(v) bind(C, name='KF5X_SET_RTCP')
      import :: c_int
      integer(c_int), intent(in) :: v
    end subroutine kf5x_set_rtcp

    integer(c_int) function kf5x_get_rtcp(v) bind(C, name='KF5X_GET_RTCP')
      import :: c_int
      integer(c_int), intent(out) :: v
    end function kf5x_get_rtcp

    ! ---- transforms and solver ----
    integer(c_int) function kf5x_set_piece(m) bind(C, name='KF5X_SET_PIECE')
      import :: c_int, c_float
      real(c_float), intent(in) :: m(16)
    end function kf5x_set_piece

    integer(c_int) function kf5x_ijk2abc(ijk, prev, abc, status) bind(C, name='KF5X_IJK2ABC')
      import :: c_int, c_float
      real(c_float), intent(in) :: ijk(3), prev(3)
      real(c_float), intent(inout) :: abc(3)
      integer(c_int), intent(out) :: status
    end function kf5x_ijk2abc

    integer(c_int) function kf5x_pts2xyz(p, abc, xyz, status) bind(C, name='KF5X_PTS2XYZ')
      import :: c_int, c_float
      real(c_float), intent(in) :: p(3), abc(3)
      real(c_float), intent(inout) :: xyz(3)
      integer(c_int), intent(out) :: status
    end function kf5x_pts2xyz

    integer(c_int) function kf5x_xyz2ijk(xyz, abc, ijk, status) bind(C, name='KF5X_XYZ2IJK')
      import :: c_int, c_float
      real(c_float), intent(in) :: xyz(3), abc(3)
      real(c_float), intent(inout) :: ijk(3)
      integer(c_int), intent(out) :: status
    end function kf5x_xyz2ijk

    integer(c_int) function kf5x_xyz2pts(xyz, abc, p, status) bind(C, name='KF5X_XYZ2PTS')
      import :: c_int, c_float
      real(c_float), intent(in) :: xyz(3), abc(3)
      real(c_float), intent(inout) :: p(3)
      integer(c_int), intent(out) :: status
    end function kf5x_xyz2pts

    ! points(6, capacity): one machine position per column.
    integer(c_int) function kf5x_xyzabc(from, to, count, points, status) &
        bind(C, name='KF5X_XYZABC')
      import :: c_int, c_float
      real(c_float), intent(in) :: from(6), to(6)
      integer(c_int), intent(inout) :: count
      real(c_float), intent(inout) :: points(*)
      integer(c_int), intent(out) :: status
    end function kf5x_xyzabc

    integer(c_int) function kf5x_interpolationtable(from, to, count, points, status) &
        bind(C, name='KF5X_INTERPOLATIONTABLE')
      import :: c_int, c_float
      real(c_float), intent(in) :: from(6), to(6)
      integer(c_int), intent(inout) :: count
      real(c_float), intent(inout) :: points(*)
      integer(c_int), intent(out) :: status
    end function kf5x_interpolationtable

    ! m holds the 4x4 matrix row after row.
    integer(c_int) function kf5x_axe_mat(a, b, m, status) bind(C, name='KF5X_AXE_MAT')
      import :: c_int, c_float
      integer(c_int), intent(in) :: a, b
      real(c_float), intent(inout) :: m(16)
      integer(c_int), intent(out) :: status
    end function kf5x_axe_mat

    integer(c_int) function kf5x_m2l(in, out) bind(C, name='KF5X_M2L')
      import :: c_int, c_float
      real(c_float), intent(in) :: in(6)
      real(c_float), intent(inout) :: out(6)
    end function kf5x_m2l

    integer(c_int) function kf5x_l2m(in, out) bind(C, name='KF5X_L2M')
      import :: c_int, c_float
      real(c_float), intent(in) :: in(6)
      real(c_float), intent(inout) :: out(6)
    end function kf5x_l2m

    integer(c_int) function kf5x_machine2tool(in, out) bind(C, name='KF5X_MACHINE2TOOL')
      import :: c_int, c_float
      real(c_float), intent(in) :: in(6)
      real(c_float), intent(inout) :: out(6)
    end function kf5x_machine2tool

    ! ---- travel limits ----
    integer(c_int) function kf5x_testcoursesxyzabc(v, flags, status) &
        bind(C, name='KF5X_TESTCOURSESXYZABC')
      import :: c_int, c_float
      real(c_float), intent(in) :: v(6)
      integer(c_int), intent(out) :: flags(6)
      integer(c_int), intent(out) :: status
    end function kf5x_testcoursesxyzabc

    integer(c_int) function kf5x_testcoursesxyz(v, flags, status) &
        bind(C, name='KF5X_TESTCOURSESXYZ')
      import :: c_int, c_float
      real(c_float), intent(in) :: v(3)
      integer(c_int), intent(out) :: flags(3)
      integer(c_int), intent(out) :: status
    end function kf5x_testcoursesxyz

    integer(c_int) function kf5x_testcoursesabc(v, flags, status) &
        bind(C, name='KF5X_TESTCOURSESABC')
      import :: c_int, c_float
      real(c_float), intent(in) :: v(3)
      integer(c_int), intent(out) :: flags(3)
      integer(c_int), intent(out) :: status
    end function kf5x_testcoursesabc

    subroutine kf5x_axe_course_minimum(axis, v) bind(C, name='KF5X_AXE_COURSE_MINIMUM')
      import :: c_int, c_float
      integer(c_int), intent(in) :: axis
      real(c_float), intent(out) :: v
    end subroutine kf5x_axe_course_minimum

    subroutine kf5x_axe_course_maximum(axis, v) bind(C, name='KF5X_AXE_COURSE_MAXIMUM')
      import :: c_int, c_float
      integer(c_int), intent(in) :: axis
      real(c_float), intent(out) :: v
    end subroutine kf5x_axe_course_maximum

    ! ---- solution enumeration ----
    subroutine kf5x_ex_abchcpossible_free() bind(C, name='KF5X_EX_ABCHCPOSSIBLE_FREE')
    end subroutine kf5x_ex_abchcpossible_free

    ! angles(3, capacity), flags(capacity): free-axis words (1 A, 2 B, 4 C).
    integer(c_int) function kf5x_ex_getallabchcpossible(dir, count, angles, flags, status) &
        bind(C, name='KF5X_EX_GETALLABCHCPOSSIBLE')
      import :: c_int, c_float
      real(c_float), intent(in) :: dir(3)
      integer(c_int), intent(inout) :: count
      real(c_float), intent(inout) :: angles(*)
      integer(c_int), intent(inout) :: flags(*)
      integer(c_int), intent(out) :: status
    end function kf5x_ex_getallabchcpossible

    integer(c_int) function kf5x_ex_getinit_ijk_2_abc_not_hc(dir, abc, status) &
        bind(C, name='KF5X_EX_GETINIT_IJK_2_ABC_NOT_HC')
      import :: c_int, c_float
      real(c_float), intent(in) :: dir(3)
      real(c_float), intent(inout) :: abc(3)
      integer(c_int), intent(out) :: status
    end function kf5x_ex_getinit_ijk_2_abc_not_hc

    subroutine kf5x_ex_get_axis_matrix(in, out) bind(C, name='KF5X_EX_GET_AXIS_MATRIX')
      import :: c_float
      real(c_float), intent(in) :: in(3)
      real(c_float), intent(out) :: out(16)
    end subroutine kf5x_ex_get_axis_matrix

    ! ---- rotary increments; an absent value leaves the increment tolerance as it is ----
    subroutine kf5x_set_increment_behaviour(behaviour, value) &
        bind(C, name='KF5X_SET_INCREMENT_BEHAVIOUR')
      import :: c_int, c_float
      integer(c_int), intent(in) :: behaviour
      real(c_float), intent(in), optional :: value
    end subroutine kf5x_set_increment_behaviour

    subroutine kf5x_get_increment_machine(flag, steps) bind(C, name='KF5X_GET_INCREMENT_MACHINE')
      import :: c_int, c_float
      integer(c_int), intent(out) :: flag
      real(c_float), intent(out) :: steps(3)
    end subroutine kf5x_get_increment_machine

    ! The K5FX_ spelling is the library's exported name.
    integer(c_int) function k5fx_toolchanger_position(pos, status) &
        bind(C, name='K5FX_TOOLCHANGER_POSITION')
      import :: c_int, c_float
      real(c_float), intent(inout) :: pos(6)
      integer(c_int), intent(out) :: status
    end function k5fx_toolchanger_position
  end interface
end module k5x
