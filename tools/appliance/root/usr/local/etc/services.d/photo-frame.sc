[global]
version="1"

[photo_frame]
title="Photo frame"
desc="Sends photos to picture frames"
port_forward="no"
dst.port="7780/tcp"
