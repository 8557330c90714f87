* Transport: bring goods from three factories to five customers at least cost.
* In the free layout, since the names are longer than eight characters.
NAME transport
ROWS
 N cost
 L supply_Hamburg
 L supply_Leipzig
 L supply_Muenchen
 G demand_Bremen
 G demand_Dresden
 G demand_Frankfurt
 G demand_Stuttgart
 G demand_Nuernberg
COLUMNS
 Hamburg_Bremen cost 12 supply_Hamburg 1
 Hamburg_Bremen demand_Bremen 1
 Hamburg_Dresden cost 47 supply_Hamburg 1
 Hamburg_Dresden demand_Dresden 1
 Hamburg_Frankfurt cost 49 supply_Hamburg 1
 Hamburg_Frankfurt demand_Frankfurt 1
 Hamburg_Stuttgart cost 65 supply_Hamburg 1
 Hamburg_Stuttgart demand_Stuttgart 1
 Hamburg_Nuernberg cost 60 supply_Hamburg 1
 Hamburg_Nuernberg demand_Nuernberg 1
 Leipzig_Bremen cost 37 supply_Leipzig 1
 Leipzig_Bremen demand_Bremen 1
 Leipzig_Dresden cost 12 supply_Leipzig 1
 Leipzig_Dresden demand_Dresden 1
 Leipzig_Frankfurt cost 39 supply_Leipzig 1
 Leipzig_Frankfurt demand_Frankfurt 1
 Leipzig_Stuttgart cost 46 supply_Leipzig 1
 Leipzig_Stuttgart demand_Stuttgart 1
 Leipzig_Nuernberg cost 28 supply_Leipzig 1
 Leipzig_Nuernberg demand_Nuernberg 1
 Muenchen_Bremen cost 75 supply_Muenchen 1
 Muenchen_Bremen demand_Bremen 1
 Muenchen_Dresden cost 46 supply_Muenchen 1
 Muenchen_Dresden demand_Dresden 1
 Muenchen_Frankfurt cost 39 supply_Muenchen 1
 Muenchen_Frankfurt demand_Frankfurt 1
 Muenchen_Stuttgart cost 22 supply_Muenchen 1
 Muenchen_Stuttgart demand_Stuttgart 1
 Muenchen_Nuernberg cost 17 supply_Muenchen 1
 Muenchen_Nuernberg demand_Nuernberg 1
RHS
 rhs supply_Hamburg 140
 rhs supply_Leipzig 110
 rhs supply_Muenchen 150
 rhs demand_Bremen 60
 rhs demand_Dresden 90
 rhs demand_Frankfurt 100
 rhs demand_Stuttgart 80
 rhs demand_Nuernberg 50
BOUNDS
 UP bound Leipzig_Dresden 70
ENDATA
