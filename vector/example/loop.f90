! The same in Fortran.
program loop
    implicit none
    include 'tuvo/simd.f90'
    interface
        function kernel(x) bind(c, name='__ocl_tuvo_e9_log10f1')
            use iso_c_binding
            real(c_float), value :: x
            real(c_float) :: kernel
        end function
    end interface
    integer, parameter :: count = 4096
    real :: x(count), y(count)
    integer :: i, different
    do i = 1, count
        x(i) = 0.01 * real(i)
    end do
    do i = 1, count
        y(i) = log10(x(i))
    end do
    different = 0
    do i = 1, count
        if (kernel(x(i)) /= y(i)) different = different + 1
    end do
    print '(a,f0.3,a,f0.6,a,i0,a,i0,a)', 'Fortran: log10(', x(2048), ') = ', y(2048), ', ', different, ' of ', count, ' differ'
    if (different /= 0) error stop
end program
