$ example deck (hand-made)
SOL 101
CEND
BEGIN BULK
$ corners of a unit tetrahedron, four different field styles
GRID,1,,0.,0.,0.
GRID           2              1.      0.      0.
GRID           3       0     0.0   10.-1     0.0
GRID*                  4                             0.0             0.0*G4
*G4               1.0E+0
$ mid-edge nodes: compact exponents, leading and trailing blanks
GRID           5           5.-1       0.      0.
GRID           6              .5   +5.-1      0.
GRID           7              0.  500.-3      0.
GRID,8,, 0.0 ,0.0, 5.0E-1
GRID           9          5.0D-1      0.     0.5
GRID          10              0.   50.-2  0.05+1
$ elements
CTRIA3         1      11       1       2       3
CTETRA,2,12,1,2,3,4
CTETRA         3      13       1       2       3       4       5       6+T3
+T3            7       8       9      10
CBAR           4      14       1       2      0.      0.      1.
CQUAD4,5,15,1,2,6,7,,,+Q5
+Q5,,,1.0,1.0,1.0,1.0
CTRIA6         6      16       1       2       3       5       6       7
              0.      0.
ENDDATA
