[global]
version="1"
support_key="supportprint"
run_key="runprint"

[print_raw]
title="Print server"
desc="Printers connected to this appliance"
port_forward="no"
dst.ports="9100:9102/tcp"

[print_scan]
title="Scan server"
desc="Scanners connected to this appliance"
port_forward="no"
dst.ports="6566,10000:10010"
