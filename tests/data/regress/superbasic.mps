NAME
* Written by TARVO version 5.0.0.127
OBJSENSE
    MIN
ROWS
 N  obj
 G  c1      
 G  c2      
 L  c3      
 G  c5      
 G  c6      
 E  c7      
 E  c8      
 E  c9      
 E  c10     
COLUMNS
    x1        obj       -2
    x1        c1        -2
    x1        c2        -2
    x1        c5        1
    x2        obj       -12
    x2        c1        -12
    x2        c2        100
    x2        c5        3
    x3        obj       10
    x3        c1        10
    x3        c8        -60
    x3        c10       2
    x4        obj       8
    x4        c2        1
    x4        c3        -7
    x4        c5        -60
    x4        c6        -1
    x5        obj       1
    x5        c1        2
    x5        c2        1
    x5        c3        1
    x5        c6        1
    x5        c9        5
    x5        c10       -60
    x6        obj       -3
    x6        c1        -1
    x6        c2        -7
    x6        c5        -3
    x6        c6        10
    x7        obj       -1.2e+02
    x7        c1        -1.2e+02
    x7        c8        -12
    x7        c9        1
RHS
    rhs       obj       -5
    rhs       c1        -2.37e+02
    rhs       c2        -3.24e+02
    rhs       c3        21
    rhs       c5        1.62e+02
    rhs       c6        33
    rhs       c8        1.56e+02
    rhs       c9        2
    rhs       c10       -6
RANGES
    ran       c2        3
    ran       c5        5
BOUNDS
 MI bound     x1      
 UP bound     x1        1.e+06
 MI bound     x2      
 UP bound     x2        -3
 FX bound     x3        -3
 FX bound     x4        -3
 MI bound     x5      
 UP bound     x5        0
 MI bound     x6      
 UP bound     x6        3
 LO bound     x7        -9.99998e+05
ENDATA
