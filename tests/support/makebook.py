#!/usr/bin/env python3
"""Writes the spreadsheet files the import tests read, as other programs write them.

    makebook.py CASE OUT

CASE: types (an .xlsx with shared strings, numbers, a date, a boolean, formulas, gaps and a second sheet), formula
(a goods sheet whose price is a formula never calculated),
merged (an .xlsx with merged cells in its data rows), xls (a legacy Excel 97-2003 workbook through xlwt), shared
(an .xlsx written by hand as spreadsheet programs write it: shared strings with rich text and phonetic runs, cells
without references, the 1904 date system).
"""
import datetime
import sys


def types(out):
    import openpyxl
    wb = openpyxl.Workbook()
    ws = wb.active
    ws.title = "商品"
    ws.append(["编号", "名称", "单件进价", "日期", "特价", "公式", None, "备注"])
    ws.append(["A001", "可乐", 35.568, datetime.date(2024, 3, 5), True, "=C2*2", None, "第一行"])
    ws.append(["A002", "雪碧", 1e-4, datetime.datetime(2024, 3, 5, 14, 30), False, None, None, None])
    ws["F3"] = "=1+1"
    ws.append(["A003", "芬达", 12, None, None, None, None, "_x0041_ & <b>"])
    other = wb.create_sheet("其他")
    other.append(["名称"])
    other.append(["只在第二张表"])
    wb.save(out)


def formula(out):
    import openpyxl
    wb = openpyxl.Workbook()
    ws = wb.active
    ws.append(["编号", "名称", "单件进价"])
    ws.append(["A1", "甲", "=2*3"])
    ws.append(["A2", "乙", 4])
    wb.save(out)


def merged(out):
    import openpyxl
    wb = openpyxl.Workbook()
    ws = wb.active
    ws.title = "商品"
    ws.append(["商品清单"])
    ws.merge_cells("A1:C1")
    ws.append(["编号", "名称", "单位"])
    ws.append(["A001", "可乐", "瓶"])
    ws.append(["A002", "雪碧", None])
    ws.merge_cells("C3:C4")
    wb.save(out)


def xls(out):
    import xlwt
    wb = xlwt.Workbook(encoding="utf-8")
    ws = wb.add_sheet("商品")
    for c, text in enumerate(["编号", "名称", "单件进价", "日期", "包装数量"]):
        ws.write(0, c, text)
    ws.write(1, 0, "A001")
    ws.write(1, 1, "可乐")
    ws.write(1, 2, 35.568)
    ws.write(1, 3, datetime.date(2024, 3, 5), xlwt.easyxf(num_format_str="yyyy-mm-dd"))
    ws.write(1, 4, 24)
    ws.write(2, 0, "A002")
    ws.write(2, 1, "雪碧")
    ws.write(2, 2, "2.5")
    wb.add_sheet("其他").write(0, 0, "名称")
    wb.save(out)


def shared(out, sheet_data=None):
    import zipfile
    main = 'xmlns="http://schemas.openxmlformats.org/spreadsheetml/2006/main"'
    rel = "http://schemas.openxmlformats.org/officeDocument/2006/relationships"
    parts = {
        "[Content_Types].xml": '<Types xmlns="http://schemas.openxmlformats.org/package/2006/content-types">'
        '<Default Extension="xml" ContentType="application/xml"/></Types>',
        "_rels/.rels": '<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">'
        f'<Relationship Id="rId1" Type="{rel}/officeDocument" Target="xl/workbook.xml"/></Relationships>',
        "xl/workbook.xml": f'<workbook {main} xmlns:r="{rel}"><workbookPr date1904="1"/><sheets>'
        '<sheet name="客户" sheetId="1" r:id="rId1"/></sheets></workbook>',
        "xl/_rels/workbook.xml.rels": '<Relationships '
        'xmlns="http://schemas.openxmlformats.org/package/2006/relationships">'
        f'<Relationship Id="rId1" Type="{rel}/worksheet" Target="worksheets/sheet1.xml"/>'
        f'<Relationship Id="rId2" Type="{rel}/sharedStrings" Target="sharedStrings.xml"/>'
        f'<Relationship Id="rId3" Type="{rel}/styles" Target="styles.xml"/></Relationships>',
        "xl/styles.xml": f'<styleSheet {main}><cellXfs count="2"><xf numFmtId="0"/><xf numFmtId="14"/></cellXfs>'
        '</styleSheet>',
        "xl/sharedStrings.xml": f'<sst {main} count="4" uniqueCount="4"><si><t>编号</t></si><si><t>名称</t></si>'
        '<si><r><t>上海</t></r><r><rPr><b/></rPr><t>百联</t></r><rPh sb="0" eb="2"><t>シャンハイ</t></rPh></si>'
        '<si><t xml:space="preserve"> 带空格 _x0009_</t></si></sst>',
        "xl/worksheets/sheet1.xml": f'<worksheet {main}><sheetData>'
        '<row><c t="s"><v>0</v></c><c t="s"><v>1</v></c><c><v>1</v></c></row>'
        '<row r="3"><c r="A3"><v>1.5E+3</v></c><c r="B3" t="s"><v>2</v></c><c r="C3" s="1"><v>0</v></c></row>'
        '<row r="4"><c r="B4" t="s"><v>3</v></c><c r="C4" t="str"><v>公式文字</v></c></row>'
        '</sheetData></worksheet>',
    }
    if sheet_data is not None:
        parts["xl/worksheets/sheet1.xml"] = f'<worksheet {main}><sheetData>{sheet_data}</sheetData></worksheet>'
    with zipfile.ZipFile(out, "w", zipfile.ZIP_DEFLATED) as z:
        for name, text in parts.items():
            z.writestr(name, text)


def twice(out):
    # One cell reference given twice in a row, as no spreadsheet program writes it.
    shared(out, '<row r="1"><c r="A1" t="s"><v>0</v></c><c r="B1" t="s"><v>1</v></c></row>'
                '<row r="2"><c r="A2"><v>7</v></c><c r="B2"><v>8</v></c><c r="A2"><v>9</v></c></row>')


if __name__ == "__main__":
    {"types": types, "formula": formula, "merged": merged, "xls": xls, "shared": shared, "twice": twice}[
        sys.argv[1]](sys.argv[2])
