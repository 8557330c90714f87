* A diet: buy six foods at least cost, such that the nutrients of a day suffice.
* Cost in cents a portion; energy in kcal, protein and fat in g, calcium in mg.
NAME          DIET
ROWS
 N  COST
 G  ENERGY
 G  PROTEIN
 L  FAT
 G  CALCIUM
COLUMNS
    OATS      COST                18   ENERGY             110
    OATS      PROTEIN              4   FAT                  2
    OATS      CALCIUM             16
    BREAD     COST                12   ENERGY              90
    BREAD     PROTEIN              3   FAT                  1
    BREAD     CALCIUM             20
    EGGS      COST                35   ENERGY             160
    EGGS      PROTEIN             13   FAT                 11
    EGGS      CALCIUM             54
    MILK      COST                26   ENERGY             150
    MILK      PROTEIN              8   FAT                  8
    MILK      CALCIUM            285
    BEANS     COST                40   ENERGY             260
    BEANS     PROTEIN             14   FAT                  6
    BEANS     CALCIUM             80
    POTATO    COST                20   ENERGY             170
    POTATO    PROTEIN              4   CALCIUM             12
RHS
    RHS       ENERGY            2000   PROTEIN             60
    RHS       FAT                 65   CALCIUM            800
RANGES
    RANGE     ENERGY             500
BOUNDS
 UP BOUND     OATS                 4
 UP BOUND     BREAD                8
 UP BOUND     EGGS                 3
 UP BOUND     MILK                 6
 UP BOUND     BEANS                2
 UP BOUND     POTATO               5
ENDATA
