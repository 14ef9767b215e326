[global]
version=1
