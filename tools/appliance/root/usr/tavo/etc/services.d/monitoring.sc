[global]
version="1"
support_key="supportmonitoring"
run_key="runmonitoring"

[monitor_agent]
title="Monitoring agent"
desc="Answers the questions of a monitoring server"
port_forward="no"
src.ports="1024:65535/tcp"
dst.ports="10050:10051/tcp"
