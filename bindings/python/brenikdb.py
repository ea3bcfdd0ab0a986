"""BrenikDB from Python: add and change records in a practice's shared database.

    with brenikdb.Session('/srv/practice') as session:
        session.add_start(brenikdb.Table.NAMES)
        session.set_field(brenikdb.Table.NAMES, 0, 'LAST', 'Okafor')
        print(session.add_end(brenikdb.Table.NAMES))

Session is what programs use. It loads the library, converts texts between str and the practice's code page, and
raises BrenikError for every code except success. Below it lie the twelve functions themselves: DECLARATIONS describes
them, and load() makes them callable. The module needs Python 3.6 or later and nothing besides its standard library.
"""

import ctypes
import enum
import os
import re
import struct
import sys
from typing import List, Optional, Union

Path = Union[str, 'os.PathLike[str]']

ON_WINDOWS = os.name == 'nt'

# On 32-bit Windows the functions take their arguments off the stack. Elsewhere there is one convention.
STDCALL = ctypes.WINFUNCTYPE if ON_WINDOWS else ctypes.CFUNCTYPE
CDECL = ctypes.CFUNCTYPE

INT = ctypes.c_int
IN_OUT = ctypes.POINTER(ctypes.c_int)
STRING = ctypes.c_char_p
BUFFER = ctypes.POINTER(ctypes.c_char)

# Every function returns an unsigned code of 32 bits.
DECLARATIONS = [
    ('BrenikInitialize', STDCALL, [STRING, INT, INT]),
    ('BrenikShutDown', CDECL, []),
    ('BrenikAddedRecord', STDCALL, [INT, INT]),
    ('BrenikDeletedRecord', STDCALL, [INT, INT]),
    ('BrenikAddStart', STDCALL, [INT, IN_OUT]),
    ('BrenikAddEnd', STDCALL, [INT, BUFFER]),
    ('BrenikEditStart', STDCALL, [INT, STRING, IN_OUT]),
    ('BrenikEditBegin', STDCALL, [INT, INT, IN_OUT]),
    ('BrenikSetField', STDCALL, [INT, INT, STRING, STRING]),
    ('BrenikEditEnd', STDCALL, [INT, INT]),
    ('BrenikGetMyFirm', STDCALL, [BUFFER]),
    ('BrenikGetU_ID', STDCALL, [INT, STRING, BUFFER]),
]

# Bytes. The library writes a NUL one byte past the text that GetU_ID and GetMyFirm give back.
IDENTIFIER_LENGTH = 7
ADD_END_BUFFER = 8
GET_U_ID_BUFFER = 9
FIRM_LENGTH = 1000
FIRM_BUFFER = 1002


class Code(enum.IntEnum):
    """What the functions return. `text` says what a code means and what to do about it."""

    SUCCESS = 0, 'Done.'
    DATA_FILES_MISSING = 1, 'LAWSYS.DBF or LAW1.DBF is not in the data folder: check the path.'
    INDEX_FILES_MISSING = 2, "LAW1.CDX or LAW2.CDX is missing: rebuild the practice's indexes."
    SYSTEM_TABLE_NOT_OPENED = 3, (
        'The system table cannot be opened. One of its files is missing, not permitted, held by another program or '
        'damaged; the fault file says which and why ("brenik faults" prints it).')
    TABLE_NOT_OPENED = 4, (
        'Another table cannot be opened, for one of the same reasons. From BrenikAddEnd: the matter was added, '
        'without its link.')
    BAD_TABLE = 5, 'The table number is out of range or its table is not open: correct the call.'
    BAD_RECORD = 6, 'No such record, not the current one, not deleted, or no Start before: correct the call.'
    UNKNOWN_FIELD = 7, 'The table has no field of that name; the other fields are unaffected.'
    ADDITION_NOT_STAMPED = 8, 'The addition could not be noted in the change journal: report it again later.'
    EDIT_NOT_STAMPED = 9, 'The edit could not be written or noted: try BrenikEditEnd again.'
    DELETION_NOT_STAMPED = 10, 'The deletion could not be noted in the change journal: report it again later.'
    NOT_REGISTERED = 11, 'This build of the library lacks the operation: replace the library.'
    LOCK_REFUSED = 12, 'Another workstation holds the record: try BrenikEditEnd again later.'
    NOT_CURRENT = 13, 'The table is not the one that the Start selected: start the transaction again.'
    FAULT = 14, (
        'A fault such as a damaged file or a full disk stopped the call; the fault file has one line with the reason. '
        'The session stays usable and holds no lock. Start the transaction again once the cause is removed. The child '
        'of a fork gets this code from every call until BrenikInitialize starts a session there.')
    ALREADY_SHUT_DOWN = 15, 'The session is already shut down: nothing to do.'
    IDENTIFIER_NOT_FOUND = 16, (
        'No record has that identifier. From BrenikAddEnd: the matter was added, without its link.')
    APPEND_FAILED = 17, (
        "The record could not be appended, because another workstation kept a lock: try again; for a matter, pass the "
        "contact's identifier again. If a matter's identifier is returned, the matter was added and only its link is "
        "missing.")
    DUPLICATE_CODE = 18, 'The code already exists; its identifier is returned.'
    KEY_NOT_FOUND = 19, 'No record has that key, or the key is blank.'

    def __new__(cls, number, text):
        code = int.__new__(cls, number)
        code._value_ = number
        code.text = text
        return code


class Table(enum.IntEnum):
    """The tables that a host selects."""

    NAMES = 1
    EVENTS = 2
    MATTERS = 3
    NOTES = 4
    CODES = 7
    CROSS_REFERENCES = 9
    JOURNAL = 20


# The number of the code page that each mark in a table's header stands for.
CODE_PAGES = {
    0x01: 437, 0x02: 850, 0x03: 1252, 0x04: 10000,
    0x64: 852, 0x65: 866, 0x66: 865, 0x67: 861, 0x6A: 737, 0x6B: 857,
    0x78: 950, 0x79: 949, 0x7A: 936, 0x7B: 932, 0x7C: 874, 0x7D: 1255, 0x7E: 1256,
    0x96: 10007, 0x97: 10029, 0x98: 10006,
    0xC8: 1250, 0xC9: 1251, 0xCA: 1254, 0xCB: 1253, 0xCC: 1257,
}
UNMARKED_PAGE = 1252
_PLACE_OF_MARK = 29
# What some systems make of bytes that a page leaves undefined: control characters, and the private use area.
_UNDEFINED = re.compile('[\x80-\x9F\uE000-\uF8FF]')
_MAC_CODECS = {10000: 'mac_roman', 10006: 'mac_greek', 10007: 'mac_cyrillic', 10029: 'mac_latin2'}

# Far more bytes than the reason of one call needs, whatever the fault file may be.
_MOST_OF_FAULTS = 64 * 1024
# The codes for which the library writes a line to the fault file.
_WITH_REASON = (Code.DATA_FILES_MISSING, Code.INDEX_FILES_MISSING, Code.SYSTEM_TABLE_NOT_OPENED,
                Code.TABLE_NOT_OPENED, Code.ADDITION_NOT_STAMPED, Code.EDIT_NOT_STAMPED,
                Code.DELETION_NOT_STAMPED, Code.FAULT)
# The codes of AddEnd after which its buffer holds the identifier of a record that exists.
_WITH_IDENTIFIER = (Code.TABLE_NOT_OPENED, Code.IDENTIFIER_NOT_FOUND, Code.APPEND_FAILED, Code.DUPLICATE_CODE)


class BrenikError(Exception):
    """A function of the library returned another code than success.

    code        the Code, or a plain int if this module does not know it
    function    the function's name, such as 'BrenikAddEnd'
    identifier  from add_end: the identifier of the existing code after DUPLICATE_CODE; after TABLE_NOT_OPENED,
                IDENTIFIER_NOT_FOUND and APPEND_FAILED that of the matter that was added without its link. Else ''
    reason      the library's reason from the fault file, or ''
    """

    def __init__(self, function, code, identifier='', reason=''):
        self.function = function
        self.code = Code(code) if code in Code.__members__.values() else code
        self.identifier = identifier
        self.reason = reason
        text = getattr(self.code, 'text', 'This code is unknown: use the binding of the same release.')
        super().__init__('%s: %d: %s%s' % (function, code, text, ' (%s)' % reason if reason else ''))


def load(library: Path = ''):
    """Loads the library and returns an object that has the twelve functions of DECLARATIONS.

    library  the path of the library. '' searches for BrenikDB.dll beside the program, then in the folders of PATH;
             elsewhere for libBrenikDB.so.0 as the system does.
    Raises OSError if the library is missing, is no library of this system, or has another number of bits than this
    Python. The bits are compared before the library is loaded, if its place is known. It stays loaded.
    """
    path = os.fspath(library) if library else _usual_library()
    if os.path.dirname(path) and os.path.isfile(path):      # a bare name is the system's to search for
        _compare_bits(path)
    loaded = ctypes.CDLL(path)
    functions = type('Functions', (), {})()
    for name, convention, arguments in DECLARATIONS:
        try:
            setattr(functions, name, convention(ctypes.c_uint, *arguments)((name, loaded)))
        except AttributeError:
            raise OSError('%s: has no function %s: name the library BrenikDB' % (path, name)) from None
    return functions


def _usual_library():
    if not ON_WINDOWS:
        return 'libBrenikDB.so.0'
    # From Python 3.8 on, ctypes does not search the folders of PATH.
    folders = [os.path.dirname(os.path.abspath(sys.argv[0])), *os.environ.get('PATH', '').split(os.pathsep)]
    places = [os.path.join(folder, 'BrenikDB.dll') for folder in folders]
    return next((place for place in places if os.path.isfile(place)), 'BrenikDB.dll')


def _compare_bits(path):
    with open(path, 'rb') as file:
        head = file.read(4096)
    bits = None
    if ON_WINDOWS and head[:2] == b'MZ' and len(head) >= 0x40:
        machine = head[struct.unpack_from('<I', head, 0x3C)[0]:][:6]
        bits = {b'PE\0\0\x4C\x01': 32, b'PE\0\0\x64\x86': 64, b'PE\0\0\x64\xAA': 64}.get(machine)
    elif not ON_WINDOWS and head[:4] == b'\x7FELF':
        bits = {1: 32, 2: 64}.get(head[4])
    if bits is None:
        raise OSError('%s: is no library for this system: name %s' %
                      (path, 'BrenikDB.dll' if ON_WINDOWS else 'libBrenikDB.so.0'))
    own = struct.calcsize('P') * 8
    if bits != own:
        raise OSError('%s: the library has %d bits, this Python has %d: use the %d-bit library or a %d-bit Python' %
                      (path, bits, own, own, bits))


class Session:
    """A practice that is open. Use it in a `with` block, whose end shuts it down; or call shut_down().

    data_path  the folder of the practice; blank for the current one
    trace      True: the library writes every call to Trace.Log in the folder
    library    see load()
    code_page  the number of the practice's code page, such as 850. None: the page that LAW1.DBF is marked with, or
               1252 if it has no mark

    Raises BrenikError with DATA_FILES_MISSING, INDEX_FILES_MISSING, SYSTEM_TABLE_NOT_OPENED, TABLE_NOT_OPENED;
    OSError if the library cannot be loaded or the mark cannot be read; ValueError if it stands for no known page or a
    text does not fit its page;
    RuntimeError if a session is open in this process already: the library serves one session, and one thread, at a
    time.

    Every method can also raise BrenikError with FAULT and NOT_REGISTERED. After shut_down() every method raises
    ALREADY_SHUT_DOWN. A text with a NUL, or with a character that the practice's code page lacks, raises ValueError,
    and nothing is called. In texts that come back, a byte that the page leaves undefined becomes \\xHH.
    """

    _process = None             # the one that has an open session; the child of a fork can begin its own

    def __init__(self, data_path: Path, trace: bool = False, library: Path = '', code_page: Optional[int] = None):
        if Session._process == os.getpid():
            raise RuntimeError('a session is open in this process: shut it down before you begin another')
        self._closed = True
        self._functions = load(library)
        data_path = os.fspath(data_path)
        marked = code_page or _marked_page(data_path)
        self.code_page = marked or UNMARKED_PAGE
        self._codec = _MAC_CODECS.get(self.code_page, 'cp%d' % self.code_page)
        _check_codec(self._codec, self.code_page)
        path = _encoded_path(data_path)
        self._faults = _fault_file()
        Session._process, self._closed = os.getpid(), False
        try:
            self._require('BrenikInitialize', self._call('BrenikInitialize', path, int(bool(trace)), 0))
            if marked is None:
                raise OSError('%s: the code page cannot be read from LAW1.DBF: spell the folder as the system does, '
                              'or pass code_page' % data_path)
        except BaseException:
            self._close()
            raise

    def __enter__(self) -> 'Session':
        return self

    def __exit__(self, kind, error, trace):
        if self._closed:
            return
        try:
            self.shut_down()
        except BrenikError:
            if kind is None:        # otherwise the first error matters more
                raise

    def shut_down(self) -> None:
        """Closes every table and releases every lock. ALREADY_SHUT_DOWN."""
        if self._closed:
            raise BrenikError('BrenikShutDown', Code.ALREADY_SHUT_DOWN)
        self._require('BrenikShutDown', self._close())

    def added_record(self, table: int, record: int) -> None:
        """Notes in the change journal that the host itself has appended a record, and makes that record current.

        BAD_TABLE, BAD_RECORD (no such record), ADDITION_NOT_STAMPED (no identifier, or the journal is locked).
        """
        self._do('BrenikAddedRecord', table, record)

    def deleted_record(self, table: int, record: int) -> None:
        """Notes in the change journal that the host itself has marked a record deleted, and makes it current.

        BAD_TABLE, BAD_RECORD (no such record, or it is not deleted), DELETION_NOT_STAMPED.
        """
        self._do('BrenikDeletedRecord', table, record)

    def add_start(self, table: int) -> None:
        """Starts a new record with empty fields. A second Start replaces the first. BAD_TABLE."""
        self._do('BrenikAddStart', table, INT())

    def add_end(self, table: int, contact: str = '') -> str:
        """Appends the new record and returns its identifier.

        contact  for a matter: the identifier of the contact to link it to, 7 characters; '' for none
        NOT_CURRENT, APPEND_FAILED, DUPLICATE_CODE (table 7), and for a matter IDENTIFIER_NOT_FOUND and
        TABLE_NOT_OPENED. BrenikError.identifier tells which record exists in spite of the error: do not add a matter
        again that is named there.
        """
        given = self._encoded(contact, 'contact')
        if len(given) not in (0, IDENTIFIER_LENGTH):
            raise ValueError('contact: %r is no identifier: pass the %d characters that add_end() or get_u_id() '
                             'returned, or none' % (contact, IDENTIFIER_LENGTH))
        buffer = ctypes.create_string_buffer(given, ADD_END_BUFFER)
        code = self._call('BrenikAddEnd', table, buffer)
        identifier = self._decoded(buffer.value).rstrip(' ')
        self._require('BrenikAddEnd', code, identifier if code in _WITH_IDENTIFIER else '')
        return identifier

    def edit_start(self, table: int, identifier: str) -> None:
        """Starts an edit of the record with an identifier, or of the first whose identifier begins with the text.

        The record's number is not known then, so pass record 0 to set_field() and edit_end(), and call nothing else
        in between. BAD_TABLE, IDENTIFIER_NOT_FOUND.
        """
        self._do('BrenikEditStart', table, self._encoded(identifier, 'identifier'), INT())

    def edit_begin(self, table: int, record: int) -> None:
        """Starts an edit of a record by its number; the record may be deleted. BAD_TABLE, BAD_RECORD."""
        self._do('BrenikEditBegin', table, record, INT())

    def set_field(self, table: int, record: int, field: str, text: str) -> None:
        """Sets one field of the transaction; the library converts the text to the field's type.

        record  the record of the transaction; 0 for the current one, and for a new record
        text    a number with a decimal point, a date as MM/DD/YYYY or YYYYMMDD, 'Y', 'T' or '1' for true. A text that
                does not convert becomes 0, the empty date or false, without an error.
        NOT_CURRENT, BAD_RECORD, UNKNOWN_FIELD.
        """
        self._do('BrenikSetField', table, record, self._encoded(field, 'field'), self._encoded(text, field))

    def edit_end(self, table: int, record: int = 0) -> None:
        """Writes the edited record under a lock, and notes in the change journal which fields changed.

        The whole record is written, as it was at the Start and with the fields that were set. NOT_CURRENT,
        BAD_RECORD, LOCK_REFUSED, EDIT_NOT_STAMPED. The transaction is kept, so edit_end() can be repeated.
        """
        self._do('BrenikEditEnd', table, record)

    def get_my_firm(self) -> List[str]:
        """Returns the 23 items that describe the practice's own contact; an empty list if it names none."""
        buffer = ctypes.create_string_buffer(b' ' * FIRM_LENGTH, FIRM_BUFFER)
        self._do('BrenikGetMyFirm', buffer)
        text = self._decoded(buffer.value)          # the byte before the NUL is what the buffer held before
        return text[:text.rfind('|')].split('|') if '|' in text else []

    def get_u_id(self, table: int, key: str) -> str:
        """Returns the identifier of the contact with an ID (table 1) or of the matter with a case number (table 3).

        The key may be in any letter case. The record becomes current. BAD_TABLE, KEY_NOT_FOUND.
        """
        buffer = ctypes.create_string_buffer(b' ' * IDENTIFIER_LENGTH, GET_U_ID_BUFFER)
        self._do('BrenikGetU_ID', table, self._encoded(key, 'key'), buffer)
        return self._decoded(buffer.value).rstrip(' ')

    def _do(self, function, *arguments):
        self._require(function, self._call(function, *arguments))

    def _call(self, function, *arguments):
        if self._closed:
            return Code.ALREADY_SHUT_DOWN
        for number in arguments:
            if isinstance(number, int) and number != INT(number).value:         # ctypes would cut it to 32 bits
                raise ValueError('%s: %d is no number of a table or record: correct it' % (function, number))
        self._faults_before = _size(self._faults)
        return getattr(self._functions, function)(*arguments)

    def _close(self):
        code = self._call('BrenikShutDown')
        Session._process, self._closed = None, True
        return code

    def _require(self, function, code, identifier=''):
        if code != Code.SUCCESS:
            raise BrenikError(function, code, identifier, self._reason(code))

    def _reason(self, code):
        """The last line that was added to the fault file during the call."""
        if code not in _WITH_REASON:
            return ''
        try:
            size = os.path.getsize(self._faults)
            start = self._faults_before if self._faults_before <= size else 0     # or the file began anew
            start = max(start, size - _MOST_OF_FAULTS)
            with open(self._faults, 'rb') as file:
                file.seek(start)
                added = file.read(size - start).decode('mbcs' if ON_WINDOWS else 'utf-8', 'replace')
        except OSError:
            return ''
        lines = [line.split('\t', 2) for line in added.splitlines() if line.count('\t') >= 2]
        return lines[-1][2] if lines else ''

    def _encoded(self, text, what):
        if '\0' in text:
            raise ValueError('%s: the text has a NUL, at which the library would cut it: remove it' % what)
        try:
            missing = _UNDEFINED.search(text)
            if not missing:
                return text.encode(self._codec)
            place = missing.start()
        except UnicodeEncodeError as error:
            place = error.start
        raise ValueError('%s: code page %d of the practice lacks the character %r (U+%04X): replace it' % (
            what, self.code_page, text[place], ord(text[place])))

    def _decoded(self, text):
        def escaped(found):
            first, *rest = found[0].encode(self._codec)
            return '\\x%02x' % first + self._decoded(bytes(rest))
        return _UNDEFINED.sub(escaped, text.decode(self._codec, 'backslashreplace'))


def _marked_page(folder):
    """The number of the code page that the practice's contacts are marked with; None if they cannot be read."""
    folder = folder.strip(' ') or '.'       # as the library reads the path
    try:
        names = [name for name in os.listdir(folder) if name.upper() == 'LAW1.DBF']
        with open(os.path.join(folder, names[0]), 'rb') as file:
            mark = file.read(_PLACE_OF_MARK + 1)[_PLACE_OF_MARK]
    except (OSError, IndexError):
        return None
    if mark != 0 and mark not in CODE_PAGES:
        raise ValueError('%s: the code page mark 0x%02x of LAW1.DBF stands for no known page: pass code_page' %
                         (folder, mark))
    return CODE_PAGES.get(mark, UNMARKED_PAGE)


def _check_codec(codec, page):
    try:
        'A'.encode(codec)
    except LookupError:
        raise ValueError('code_page: Python does not know code page %d: pass another one' % page) from None


def _encoded_path(path):
    if '\0' in path:
        raise ValueError('data_path: %r has a NUL: remove it' % path)
    try:
        return path.encode('mbcs', 'strict') if ON_WINDOWS else os.fsencode(path)
    except UnicodeEncodeError:
        raise ValueError('data_path: the ANSI code page of this process lacks a character of %r: rename the folder, '
                         'or map a drive to it' % path) from None


def _fault_file():
    chosen = os.environ.get('BRENIK_FAULTS')
    if chosen:
        return chosen
    if ON_WINDOWS:
        return os.path.join(os.environ.get('LOCALAPPDATA', ''), 'BrenikDB', 'Faults.log')
    return os.path.join(os.path.expanduser('~'), '.brenik', 'Faults.log')


def _size(path):
    try:
        return os.path.getsize(path)
    except OSError:
        return 0
