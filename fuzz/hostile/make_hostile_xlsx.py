#!/usr/bin/env python3
"""Writes the hostile spreadsheets replayed through fuzz_xlsxreader (run in fuzz/hostile/xlsxreader).

bomb-sharedstrings.xlsx  one shared string that inflates to 1.2 GB
bomb-sheet.xlsx          a sheet whose one row inflates to 1.2 GB of cells
deep-nesting*.xlsx       a cell nested 500,000 elements deep, with and without a DOCTYPE
                         (the latter goes through the Qt XML reader instead of the scanner)
"""
import zipfile

NS = 'http://schemas.openxmlformats.org'
RELS = ('<?xml version="1.0"?><Relationships xmlns="%s/package/2006/relationships">'
        '<Relationship Id="rId1" Type="%s/officeDocument/2006/relationships/officeDocument" '
        'Target="xl/workbook.xml"/></Relationships>') % (NS, NS)
WORKBOOK = ('<?xml version="1.0"?><workbook xmlns="%s/spreadsheetml/2006/main" '
            'xmlns:r="%s/officeDocument/2006/relationships"><sheets>'
            '<sheet name="S" sheetId="1" r:id="rId1"/></sheets></workbook>') % (NS, NS)
WORKBOOK_RELS = ('<?xml version="1.0"?><Relationships xmlns="%s/package/2006/relationships">'
                 '<Relationship Id="rId1" Type="%s/officeDocument/2006/relationships/worksheet" '
                 'Target="worksheets/sheet1.xml"/>'
                 '<Relationship Id="rId2" Type="%s/officeDocument/2006/relationships/sharedStrings" '
                 'Target="sharedStrings.xml"/></Relationships>') % (NS, NS, NS)
SHEET_HEAD = '<?xml version="1.0"?>%s<worksheet xmlns="%s/spreadsheetml/2006/main"><sheetData>'
SST_HEAD = '<sst xmlns="%s/spreadsheetml/2006/main">' % NS
BOMB_SIZE = 1200 * 1000 * 1000


def workbook(path, parts):
    with zipfile.ZipFile(path, 'w', zipfile.ZIP_DEFLATED, compresslevel=9) as archive:
        archive.writestr('_rels/.rels', RELS)
        archive.writestr('xl/workbook.xml', WORKBOOK)
        archive.writestr('xl/_rels/workbook.xml.rels', WORKBOOK_RELS)
        for name, content in parts.items():
            if isinstance(content, str):
                archive.writestr(name, content)
                continue
            prefix, unit, suffix = content  # streamed, so the bomb never sits in memory
            with archive.open(name, 'w', force_zip64=True) as part:
                part.write(prefix.encode())
                block = (unit * (1 << 16)).encode()
                for _ in range(BOMB_SIZE // len(block) + 1):
                    part.write(block)
                part.write(suffix.encode())


one_cell = SHEET_HEAD % ('', NS) + '<row r="1"><c r="A1" t="s"><v>0</v></c></row></sheetData></worksheet>'
workbook('bomb-sharedstrings.xlsx', {
    'xl/sharedStrings.xml': (SST_HEAD + '<si><t>', 'x' * 16, '</t></si></sst>'),
    'xl/worksheets/sheet1.xml': one_cell})
workbook('bomb-sheet.xlsx', {
    'xl/sharedStrings.xml': SST_HEAD + '<si><t>a</t></si></sst>',
    'xl/worksheets/sheet1.xml': (SHEET_HEAD % ('', NS) + '<row>', '<c><v>1</v></c>',
                                 '</row></sheetData></worksheet>')})
for name, doctype in (('deep-nesting.xlsx', ''), ('deep-nesting-doctype.xlsx', '<!DOCTYPE worksheet>')):
    depth = 500000
    workbook(name, {'xl/sharedStrings.xml': SST_HEAD + '</sst>',
                    'xl/worksheets/sheet1.xml': SHEET_HEAD % (doctype, NS)
                    + '<row r="1"><c r="A1" t="inlineStr"><is>' + '<t>' * depth + 'x' + '</t>' * depth
                    + '</is></c></row>' + '<row>' * depth + '</row>' * depth + '</sheetData></worksheet>'})
