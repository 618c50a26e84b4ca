BEGIN BULK
CHEXA,1,2,1,2,3,4,5,6,+C
+C,7,8
GRID*,7,,1.5,2.5
*,3.5
GRID	1		0.	0.	0.
CTETRA  1               1       2       3       4       5       1       +14     
+14     2       3       4       5       
ENDDATA
