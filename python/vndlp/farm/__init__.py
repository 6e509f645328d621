"""Slice files by the thousand, on one machine or many: `python3 -m vndlp.farm`.

A client (`client`) hands files to Dask workers and writes a row a file. On a worker (`worker`) each thread keeps a child
process (`child`), in which the work is done (`work`): what kills the child costs one file, and a child that takes too long
can be ended.
"""
