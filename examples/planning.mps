* Production planning: two products A and B over three months, each with hours of machines and
* of labour. Make, sell up to the demand, keep the rest in store at a price; 20 pieces of each are
* in store at the start, 10 must be left at the end. The profit is to be largest.
NAME          PLANNING
OBJSENSE
    MAX
ROWS
 N  PROFIT
 L  MACHIN1
 L  LABOUR1
 E  BALA1
 E  BALB1
 L  MACHIN2
 L  LABOUR2
 E  BALA2
 E  BALB2
 L  MACHIN3
 L  LABOUR3
 E  BALA3
 E  BALB3
COLUMNS
    MAKEA1    PROFIT             -34   MACHIN1            1.5
    MAKEA1    LABOUR1              1   BALA1                1
    MAKEA2    PROFIT             -34   MACHIN2            1.5
    MAKEA2    LABOUR2              1   BALA2                1
    MAKEA3    PROFIT             -34   MACHIN3            1.5
    MAKEA3    LABOUR3              1   BALA3                1
    SELLA1    PROFIT              60   BALA1               -1
    SELLA2    PROFIT              60   BALA2               -1
    SELLA3    PROFIT              65   BALA3               -1
    KEEPA1    PROFIT              -2   BALA1               -1
    KEEPA1    BALA2                1
    KEEPA2    PROFIT              -2   BALA2               -1
    KEEPA2    BALA3                1
    KEEPA3    PROFIT              -2   BALA3               -1
    MAKEB1    PROFIT             -50   MACHIN1              2
    MAKEB1    LABOUR1            2.5   BALB1                1
    MAKEB2    PROFIT             -50   MACHIN2              2
    MAKEB2    LABOUR2            2.5   BALB2                1
    MAKEB3    PROFIT             -50   MACHIN3              2
    MAKEB3    LABOUR3            2.5   BALB3                1
    SELLB1    PROFIT              85   BALB1               -1
    SELLB2    PROFIT              85   BALB2               -1
    SELLB3    PROFIT              90   BALB3               -1
    KEEPB1    PROFIT              -3   BALB1               -1
    KEEPB1    BALB2                1
    KEEPB2    PROFIT              -3   BALB2               -1
    KEEPB2    BALB3                1
    KEEPB3    PROFIT              -3   BALB3               -1
RHS
    RHS       MACHIN1            420   LABOUR1            360
    RHS       MACHIN2            420   LABOUR2            300
    RHS       MACHIN3            420   LABOUR3            360
    RHS       BALA1              -20   BALB1              -20
RANGES
    RANGE     LABOUR2             60
BOUNDS
 UP BOUND     SELLA1             120
 UP BOUND     SELLA2             150
 UP BOUND     SELLA3             180
 UP BOUND     KEEPA1              60
 UP BOUND     KEEPA2              60
 FX BOUND     KEEPA3              10
 UP BOUND     SELLB1              80
 UP BOUND     SELLB2              60
 UP BOUND     SELLB3             110
 UP BOUND     KEEPB1              60
 UP BOUND     KEEPB2              60
 FX BOUND     KEEPB3              10
ENDATA
