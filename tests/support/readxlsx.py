#!/usr/bin/python3
"""Reads a workbook with an independent reader (openpyxl) and prints it as JSON:
{"sheets": [{"name": ..., "rows": [[cell text, ...], ...]}], "entries": {part name: sha256 of its bytes}}."""
import hashlib
import json
import sys
import zipfile

import openpyxl

path = sys.argv[1]
book = openpyxl.load_workbook(path)
sheets = []
for sheet in book.worksheets:
    rows = []
    for row in sheet.iter_rows(values_only=True):
        rows.append(["" if v is None else str(v) for v in row])
    sheets.append({"name": sheet.title, "rows": rows})
with zipfile.ZipFile(path) as archive:
    if archive.testzip() is not None:
        sys.exit("corrupt member in " + path)
    entries = {i.filename: hashlib.sha256(archive.read(i.filename)).hexdigest() for i in archive.infolist()}
json.dump({"sheets": sheets, "entries": entries}, sys.stdout, ensure_ascii=False)
