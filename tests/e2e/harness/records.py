"""Each type's number and record, the latter as a format of struct, from the documented layouts."""
FORMATS = {"host": (0, "6s7d"), "matrix": (1, "6s6s3d"), "pdist": (2, "II2d"), "nlhost": (3, "II16s5d"),
           "nlmatrix": (4, "II16sI16s2d"), "vlan": (5, "I4d"), "prio": (6, "I2d"), "dsstats": (7, "I4d"),
           "dspdist": (8, "II2d"), "dshost": (9, "III16s4d"), "dsmatrix": (10, "III16sI16sI2d"),
           "etherstats": (12, "III16s18d"), "supvlan": (13, "I4d"), "ifstats": (14, "II16s12d")}
