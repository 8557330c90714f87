// Problem data, files, drivers: the exported calls.
