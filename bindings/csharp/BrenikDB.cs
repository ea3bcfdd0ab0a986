// BrenikDB for C# and the other .NET languages, complete in this one file: add it to a project.
//
// A Session is an open practice. Its methods are the functions of the library with strings for
// bytes and exceptions for codes. The class Native below it has the twelve functions as they are.
//
//     using (var practice = new BrenikDB.Session(@"C:\Practice"))
//     {
//         practice.AddStart(BrenikDB.Tables.Names);
//         practice.SetField(BrenikDB.Tables.Names, 0, "LAST", "Ives");
//         string contact = practice.AddEnd(BrenikDB.Tables.Names);
//     }
//
// The file needs C# 7.0 and .NET Framework 4, .NET 6 or Mono, or a later version of them. A process
// and its library have the same number of bits. A project that uses the 32-bit BrenikDB.dll must
// therefore say so, because "Any CPU" programs run with 64 bits on 64-bit Windows:
//
//     <PropertyGroup>
//       <PlatformTarget>x86</PlatformTarget>
//     </PropertyGroup>
//
// Windows or glibc converts the texts, so that the code pages do not depend on the .NET version.

using System;
using System.Collections.Generic;
using System.IO;
using System.Runtime.InteropServices;
using System.Text;

namespace BrenikDB
{
#pragma warning disable 1591  // BrenikError.TextOf gives the meaning of each code
    /// <summary>The result of a function. BrenikError.TextOf says what each one means.</summary>
    public enum BrenikCode : uint
    {
        Success = 0,
        DataFilesMissing = 1,
        IndexFilesMissing = 2,
        SystemTableNotOpened = 3,
        TableNotOpened = 4,
        BadTable = 5,
        BadRecord = 6,
        UnknownField = 7,
        AdditionNotStamped = 8,
        EditNotStamped = 9,
        DeletionNotStamped = 10,
        NotRegistered = 11,
        LockRefused = 12,
        NotCurrent = 13,
        Fault = 14,
        AlreadyShutDown = 15,
        IdentifierNotFound = 16,
        AppendFailed = 17,
        DuplicateCode = 18,
        KeyNotFound = 19
    }

    /// <summary>The numbers of the tables.</summary>
    public static class Tables
    {
        public const int Names = 1;
        public const int Events = 2;
        public const int Matters = 3;
        public const int Notes = 4;
        public const int Codes = 7;
        public const int CrossReferences = 9;
        public const int Journal = 20;
    }
#pragma warning restore 1591

    /// <summary>A function of the library returned a code other than Success.</summary>
    public sealed class BrenikError : Exception
    {
        private static readonly Dictionary<BrenikCode, string> Texts =
            new Dictionary<BrenikCode, string>
        {
            { BrenikCode.Success, "Done." },
            { BrenikCode.DataFilesMissing,
              "LAWSYS.DBF or LAW1.DBF is not in the data folder: check the path." },
            { BrenikCode.IndexFilesMissing,
              "LAW1.CDX or LAW2.CDX is missing: rebuild the practice's indexes." },
            { BrenikCode.SystemTableNotOpened,
              "The system table cannot be opened. One of its files is missing, not " +
              "permitted, held by another program or damaged; the fault file says which " +
              "and why (\"brenik faults\" prints it)." },
            { BrenikCode.TableNotOpened,
              "Another table cannot be opened, for one of the same reasons. From " +
              "BrenikAddEnd: the matter was added, without its link." },
            { BrenikCode.BadTable,
              "The table number is out of range or its table is not open: correct the call." },
            { BrenikCode.BadRecord,
              "No such record, not the current one, not deleted, or no Start before: " +
              "correct the call." },
            { BrenikCode.UnknownField,
              "The table has no field of that name; the other fields are unaffected." },
            { BrenikCode.AdditionNotStamped,
              "The addition could not be noted in the change journal: report it again " +
              "later." },
            { BrenikCode.EditNotStamped,
              "The edit could not be written or noted: try BrenikEditEnd again." },
            { BrenikCode.DeletionNotStamped,
              "The deletion could not be noted in the change journal: report it again " +
              "later." },
            { BrenikCode.NotRegistered,
              "This build of the library lacks the operation: replace the library." },
            { BrenikCode.LockRefused,
              "Another workstation holds the record: try BrenikEditEnd again later." },
            { BrenikCode.NotCurrent,
              "The table is not the one that the Start selected: start the transaction " +
              "again." },
            { BrenikCode.Fault,
              "A fault such as a damaged file or a full disk stopped the call; the fault " +
              "file has one line with the reason. The session stays usable and holds no " +
              "lock. Start the transaction again once the cause is removed. The child of a " +
              "fork gets this code from every call until BrenikInitialize starts a session " +
              "there." },
            { BrenikCode.AlreadyShutDown, "The session is already shut down: nothing to do." },
            { BrenikCode.IdentifierNotFound,
              "No record has that identifier. From BrenikAddEnd: the matter was added, " +
              "without its link." },
            { BrenikCode.AppendFailed,
              "The record could not be appended, because another workstation kept a lock: " +
              "try again; for a matter, pass the contact's identifier again. If a matter's " +
              "identifier is returned, the matter was added and only its link is missing." },
            { BrenikCode.DuplicateCode, "The code already exists; its identifier is returned." },
            { BrenikCode.KeyNotFound, "No record has that key, or the key is blank." },
        };

        /// <summary>The error of a function; a Session makes these.</summary>
        public BrenikError(string function, BrenikCode code, string identifier, string reason)
            : base(function + ": " + (uint)code + ": " + TextOf(code) +
                   (reason.Length == 0 ? "" : " (" + reason + ")"))
        {
            Function = function;
            Code = code;
            Identifier = identifier;
            Reason = reason;
        }

        /// <summary>The code that the function returned.</summary>
        public BrenikCode Code { get; }

        /// <summary>What the code means.</summary>
        public string Text => TextOf(Code);

        /// <summary>The name of the function, such as "BrenikAddEnd".</summary>
        public string Function { get; }

        /// <summary>The identifier that AddEnd gave all the same: after DuplicateCode that of the
        /// existing code; after IdentifierNotFound, TableNotOpened and AppendFailed that of a
        /// matter that was added without its link. Empty if there is none.</summary>
        public string Identifier { get; }

        /// <summary>The reason from the user's fault file; empty if it has none.</summary>
        public string Reason { get; }

        /// <summary>What a code means and what to do about it.</summary>
        public static string TextOf(BrenikCode code) =>
            Texts.TryGetValue(code, out string text) ? text
                : "This code is unknown: use the binding of the same release.";
    }

    /// <summary>The functions as the library exports them, for a host that needs more than Session
    /// offers. Texts are bytes in the practice's code page and end with a NUL. brenikdb.h is their
    /// manual.</summary>
    public sealed class Native
    {
        /// <summary>The length of an identifier.</summary>
        public const int IdentifierLength = 7;

        /// <summary>The size of the buffer for BrenikAddEnd.</summary>
        public const int AddEndBuffer = 8;

        /// <summary>The size of the buffer for BrenikGetU_ID.</summary>
        public const int GetU_IDBuffer = 9;

        /// <summary>The length of the text that primes the buffer for BrenikGetMyFirm.</summary>
        public const int FirmLength = 1000;

        /// <summary>The size of that buffer.</summary>
        public const int FirmBuffer = 1002;

#pragma warning disable 1591  // brenikdb.h describes the functions
        [UnmanagedFunctionPointer(CallingConvention.StdCall)]
        public delegate BrenikCode BrenikInitialize([In] byte[] dataPath, int trace, int reserved);

        [UnmanagedFunctionPointer(CallingConvention.Cdecl)]
        public delegate BrenikCode BrenikShutDown();

        [UnmanagedFunctionPointer(CallingConvention.StdCall)]
        public delegate BrenikCode BrenikAddedRecord(int table, int record);

        [UnmanagedFunctionPointer(CallingConvention.StdCall)]
        public delegate BrenikCode BrenikDeletedRecord(int table, int record);

        [UnmanagedFunctionPointer(CallingConvention.StdCall)]
        public delegate BrenikCode BrenikAddStart(int table, ref int inOut);

        [UnmanagedFunctionPointer(CallingConvention.StdCall)]
        public delegate BrenikCode BrenikAddEnd(int table, [In, Out] byte[] identifier);

        [UnmanagedFunctionPointer(CallingConvention.StdCall)]
        public delegate BrenikCode BrenikEditStart(int table, [In] byte[] identifier,
                                                   ref int inOut);

        [UnmanagedFunctionPointer(CallingConvention.StdCall)]
        public delegate BrenikCode BrenikEditBegin(int table, int record, ref int inOut);

        [UnmanagedFunctionPointer(CallingConvention.StdCall)]
        public delegate BrenikCode BrenikSetField(int table, int record, [In] byte[] field,
                                                  [In] byte[] text);

        [UnmanagedFunctionPointer(CallingConvention.StdCall)]
        public delegate BrenikCode BrenikEditEnd(int table, int record);

        [UnmanagedFunctionPointer(CallingConvention.StdCall)]
        public delegate BrenikCode BrenikGetMyFirm([In, Out] byte[] firm);

        [UnmanagedFunctionPointer(CallingConvention.StdCall)]
        public delegate BrenikCode BrenikGetU_ID(int table, [In] byte[] key,
                                                 [In, Out] byte[] identifier);

        public readonly BrenikInitialize Initialize;
        public readonly BrenikShutDown ShutDown;
        public readonly BrenikAddedRecord AddedRecord;
        public readonly BrenikDeletedRecord DeletedRecord;
        public readonly BrenikAddStart AddStart;
        public readonly BrenikAddEnd AddEnd;
        public readonly BrenikEditStart EditStart;
        public readonly BrenikEditBegin EditBegin;
        public readonly BrenikSetField SetField;
        public readonly BrenikEditEnd EditEnd;
        public readonly BrenikGetMyFirm GetMyFirm;
        public readonly BrenikGetU_ID GetU_ID;
#pragma warning restore 1591

        /// <summary>Loads the library, which stays loaded until the process ends.</summary>
        /// <param name="library">The path of the library. Empty: on Windows BrenikDB.dll beside the
        /// program or where Windows searches, elsewhere libBrenikDB.so.0 where the system searches.
        /// </param>
        /// <exception cref="DllNotFoundException">The library is missing or cannot be loaded.
        /// </exception>
        /// <exception cref="BadImageFormatException">Library and process differ in their number of
        /// bits.</exception>
        /// <exception cref="EntryPointNotFoundException">The library lacks a function.</exception>
        public Native(string library)
        {
            IntPtr loaded = Platform.Load(library ?? "");
            Initialize = Bind<BrenikInitialize>(loaded);
            ShutDown = Bind<BrenikShutDown>(loaded);
            AddedRecord = Bind<BrenikAddedRecord>(loaded);
            DeletedRecord = Bind<BrenikDeletedRecord>(loaded);
            AddStart = Bind<BrenikAddStart>(loaded);
            AddEnd = Bind<BrenikAddEnd>(loaded);
            EditStart = Bind<BrenikEditStart>(loaded);
            EditBegin = Bind<BrenikEditBegin>(loaded);
            SetField = Bind<BrenikSetField>(loaded);
            EditEnd = Bind<BrenikEditEnd>(loaded);
            GetMyFirm = Bind<BrenikGetMyFirm>(loaded);
            GetU_ID = Bind<BrenikGetU_ID>(loaded);
        }

        // The function has the name of its type.
        private static T Bind<T>(IntPtr library) where T : class
        {
            IntPtr function = Platform.Find(library, typeof(T).Name);
            if (function == IntPtr.Zero)
            {
                throw new EntryPointNotFoundException(
                    "the library has no function " + typeof(T).Name + "; replace the library");
            }
            return (T)(object)Marshal.GetDelegateForFunctionPointer(function, typeof(T));
        }
    }

    // What Windows and Linux do differently when they load a library, and reading files that other
    // programs have open.
    internal static class Platform
    {
        public static readonly bool IsWindows = Path.DirectorySeparatorChar == '\\';

        private const int SearchedPathLength = 32767;
        private const int LoadNow = 2;

        [DllImport("kernel32.dll", CharSet = CharSet.Unicode, SetLastError = true)]
        private static extern IntPtr LoadLibraryW(string path);

        [DllImport("kernel32.dll", CharSet = CharSet.Ansi, ExactSpelling = true)]
        private static extern IntPtr GetProcAddress(IntPtr library, string name);

        [DllImport("kernel32.dll", CharSet = CharSet.Unicode)]
        private static extern uint SearchPathW(string path, string file, string extension,
                                               uint length, StringBuilder found, IntPtr filePart);

        [DllImport("libdl.so.2", CharSet = CharSet.Ansi)]
        private static extern IntPtr dlopen(byte[] path, int flags);

        [DllImport("libdl.so.2", CharSet = CharSet.Ansi)]
        private static extern IntPtr dlsym(IntPtr library, string name);

        [DllImport("libdl.so.2")]
        private static extern IntPtr dlerror();

        public static IntPtr Load(string library)
        {
            string path = Locate(library);
            RefuseOtherBits(path);
            IntPtr loaded = IsWindows ? LoadLibraryW(path)
                                      : dlopen(Encoding.UTF8.GetBytes(path + "\0"), LoadNow);
            if (loaded == IntPtr.Zero)
            {
                string why = IsWindows ? "Windows error " + Marshal.GetLastWin32Error()
                                       : Marshal.PtrToStringAnsi(dlerror());
                throw new DllNotFoundException("cannot load " + path + ": " + why);
            }
            return loaded;
        }

        public static IntPtr Find(IntPtr library, string function) =>
            IsWindows ? GetProcAddress(library, function) : dlsym(library, function);

        private static string Locate(string library)
        {
            if (!IsWindows) return library.Length == 0 ? "libBrenikDB.so.0" : library;
            if (library.Length != 0) return Path.GetFullPath(library);
            const string name = "BrenikDB.dll";
            string beside = Path.Combine(AppDomain.CurrentDomain.BaseDirectory, name);
            if (File.Exists(beside)) return beside;
            var found = new StringBuilder(SearchedPathLength);
            if (SearchPathW(null, name, null, SearchedPathLength, found, IntPtr.Zero) == 0)
            {
                throw new DllNotFoundException(
                    name + " is neither beside the program nor where Windows searches; copy it " +
                    "to " + AppDomain.CurrentDomain.BaseDirectory);
            }
            return found.ToString();
        }

        // dlopen searches for a name without a folder and skips libraries with other bits itself.
        private static void RefuseOtherBits(string path)
        {
            if (path.IndexOf(Path.DirectorySeparatorChar) < 0) return;
            if (!File.Exists(path)) throw new DllNotFoundException("no such library: " + path);
            int library = LibraryBits(path);
            int process = IntPtr.Size * 8;
            if (library == process) return;
            throw new BadImageFormatException(
                library == 0
                    ? path + " is not a library that this system can load"
                    : path + " has " + library + " bits, and this process has " + process +
                      "; use the " + process + "-bit library, or build the program for " +
                      (library == 32 ? "x86" : "x64"));
        }

        // The bits of a library from the class of an ELF file or the machine of a PE file; 0 if the
        // file is neither, or not of this system.
        private static int LibraryBits(string path)
        {
            const int elfClass = 4;
            const int headerPointer = 0x3C;
            const int machine = 4;
            var start = new byte[0x400];
            int size;
            using (FileStream file = OpenShared(path)) size = ReadAll(file, start);
            if (!IsWindows)
            {
                bool isElf = size > elfClass && start[0] == 0x7F && start[1] == 'E' &&
                             start[2] == 'L' && start[3] == 'F';
                return isElf ? 32 * start[elfClass] : 0;
            }
            if (size < headerPointer + 4 || start[0] != 'M' || start[1] != 'Z') return 0;
            int header = BitConverter.ToInt32(start, headerPointer);
            if (header < 0 || header > size - machine - 2) return 0;
            switch (BitConverter.ToUInt16(start, header + machine))
            {
                case 0x014C: return 32;
                case 0x8664: return 64;
                case 0xAA64: return 64;
                default: return 0;
            }
        }

        public static FileStream OpenShared(string path) =>
            new FileStream(path, FileMode.Open, FileAccess.Read,
                           FileShare.ReadWrite | FileShare.Delete);

        public static int ReadAll(Stream file, byte[] bytes)
        {
            int size = 0;
            for (int count = 1; count > 0 && size < bytes.Length; size += count)
                count = file.Read(bytes, size, bytes.Length - size);
            return size;
        }
    }

    // Converts single characters between a code page and UTF-16, by the functions of the system.
    internal sealed class Converter : IDisposable
    {
        private const uint Ansi = 0;  // the process's own page on Windows
        private const uint RefuseUndefined = 8;
        private const int HalfOfScratch = 16;
        private static readonly IntPtr Failed = new IntPtr(-1);

        // What iconv calls the code pages whose names are not "CP" and the number.
        private static readonly Dictionary<int, string> LinuxNames = new Dictionary<int, string>
        {
            { 10000, "MACINTOSH" }, { 10006, "MACGREEK" }, { 10007, "MAC-CYRILLIC" },
            { 10029, "MAC-CENTRALEUROPE" }
        };

        private readonly uint page;
        private IntPtr decoder = Failed;
        private IntPtr encoder = Failed;
        private readonly IntPtr scratch;

        [DllImport("kernel32.dll")]
        private static extern int IsValidCodePage(uint page);

        [DllImport("kernel32.dll")]
        private static extern int IsDBCSLeadByteEx(uint page, byte first);

        [DllImport("kernel32.dll", CharSet = CharSet.Unicode)]
        private static extern int MultiByteToWideChar(uint page, uint flags, byte[] bytes,
                                                      int length, [Out] char[] text, int size);

        [DllImport("kernel32.dll", CharSet = CharSet.Unicode)]
        private static extern int WideCharToMultiByte(uint page, uint flags, char[] text,
                                                      int length, [Out] byte[] bytes, int size,
                                                      IntPtr substitute, IntPtr substituted);

        [DllImport("libc.so.6", CharSet = CharSet.Ansi)]
        private static extern IntPtr iconv_open(string to, string from);

        [DllImport("libc.so.6")]
        private static extern IntPtr iconv(IntPtr conversion, ref IntPtr input,
                                           ref IntPtr inputLeft, ref IntPtr output,
                                           ref IntPtr outputLeft);

        [DllImport("libc.so.6", EntryPoint = "iconv")]
        private static extern IntPtr iconv_finish(IntPtr conversion, IntPtr noInput,
                                                  IntPtr noInputLeft, ref IntPtr output,
                                                  ref IntPtr outputLeft);

        [DllImport("libc.so.6")]
        private static extern int iconv_close(IntPtr conversion);

        public Converter(int number)
        {
            page = (uint)number;
            if (!Platform.IsWindows)
            {
                if (!LinuxNames.TryGetValue(number, out string name)) name = "CP" + number;
                decoder = iconv_open("UTF-16LE", name);
                encoder = iconv_open(name, "UTF-16LE");
            }
            if (Platform.IsWindows ? IsValidCodePage(page) == 0
                                   : decoder == Failed || encoder == Failed)
            {
                Dispose();
                throw new NotSupportedException(
                    "this system does not know code page " + number + ": pass another one");
            }
            scratch = Marshal.AllocHGlobal(2 * HalfOfScratch);
        }

        public void Dispose()
        {
            if (decoder != Failed) iconv_close(decoder);
            if (encoder != Failed) iconv_close(encoder);
            decoder = encoder = Failed;
            if (scratch != IntPtr.Zero) Marshal.FreeHGlobal(scratch);
        }

        // The character of one or two bytes; empty if the page does not define them.
        public string Decode(byte[] bytes)
        {
            if (!Platform.IsWindows)
            {
                return Encoding.Unicode.GetString(Convert(decoder, bytes));
            }
            bool isLead = IsDBCSLeadByteEx(page, bytes[0]) != 0;
            return isLead == (bytes.Length == 2) ? ToText(bytes, page, RefuseUndefined) : "";
        }

        // The bytes of a character; empty if the page lacks it. Some systems put a similar one
        // instead, which decodes differently.
        public byte[] Encode(string character) =>
            Platform.IsWindows ? ToBytes(character, page)
                               : Convert(encoder, Encoding.Unicode.GetBytes(character));

        // The text of bytes in the page of the process on Windows.
        public static string FromAnsi(byte[] bytes) => ToText(bytes, Ansi, 0);

        public static byte[] ToAnsi(string text) => ToBytes(text, Ansi);

        private static string ToText(byte[] bytes, uint page, uint flags)
        {
            var text = new char[bytes.Length + 1];
            int length =
                MultiByteToWideChar(page, flags, bytes, bytes.Length, text, text.Length);
            return new string(text, 0, length);
        }

        private static byte[] ToBytes(string text, uint page)
        {
            var bytes = new byte[text.Length * 4 + 1];  // a unit has at most four bytes in any page
            int size = WideCharToMultiByte(page, 0, text.ToCharArray(), text.Length, bytes,
                                           bytes.Length, IntPtr.Zero, IntPtr.Zero);
            Array.Resize(ref bytes, size);
            return bytes;
        }

        // Converts with iconv; empty if that refuses the character. In page 1255 it keeps a letter
        // back, to compose it with a point, until it is called without input.
        private byte[] Convert(IntPtr conversion, byte[] given)
        {
            Marshal.Copy(given, 0, scratch, given.Length);
            IntPtr input = scratch;
            IntPtr output = IntPtr.Add(scratch, HalfOfScratch);
            var inputLeft = new IntPtr(given.Length);
            var outputLeft = new IntPtr(HalfOfScratch);
            IntPtr answer =
                iconv(conversion, ref input, ref inputLeft, ref output, ref outputLeft);
            iconv_finish(conversion, IntPtr.Zero, IntPtr.Zero, ref output, ref outputLeft);
            if (answer != IntPtr.Zero) return new byte[0];
            var result = new byte[HalfOfScratch - outputLeft.ToInt32()];
            Marshal.Copy(IntPtr.Add(scratch, HalfOfScratch), result, 0, result.Length);
            return result;
        }
    }

    // The code page of a practice: text to bytes and back, a character at a time, so that all
    // bindings convert alike.
    internal sealed class CodePage : IDisposable
    {
        private const int Unmarked = 1252;
        private const int PlaceOfMark = 29;  // in the header of a table

        // The code page that each mark in a table's header stands for.
        private static readonly Dictionary<byte, int> Marks = new Dictionary<byte, int>
        {
            { 0x01, 437 }, { 0x02, 850 }, { 0x03, 1252 }, { 0x04, 10000 }, { 0x64, 852 },
            { 0x65, 866 }, { 0x66, 865 }, { 0x67, 861 }, { 0x6A, 737 }, { 0x6B, 857 },
            { 0x78, 950 }, { 0x79, 949 }, { 0x7A, 936 }, { 0x7B, 932 }, { 0x7C, 874 },
            { 0x7D, 1255 }, { 0x7E, 1256 }, { 0x96, 10007 }, { 0x97, 10029 }, { 0x98, 10006 },
            { 0xC8, 1250 }, { 0xC9, 1251 }, { 0xCA, 1254 }, { 0xCB, 1253 }, { 0xCC, 1257 },
        };

        private readonly int number;
        private readonly Converter converter;

        public CodePage(int number)
        {
            this.number = number;
            converter = new Converter(number);
        }

        public void Dispose()
        {
            converter.Dispose();
        }

        // The page that the practice's contacts are marked with; null if their table is unreadable.
        public static CodePage OfPractice(string folder)
        {
            try
            {
                string path = folder.Trim(' ');  // as the library reads it
                string place = path.Length == 0 ? "." : path;
                string table = Array.Find(Directory.GetFiles(place), IsNames);
                if (table == null) return null;
                var start = new byte[PlaceOfMark + 1];
                using (FileStream file = Platform.OpenShared(table))
                {
                    if (Platform.ReadAll(file, start) < start.Length) return null;
                }
                return new CodePage(PageOfMark(start[PlaceOfMark]));
            }
            catch (Exception failure) when (failure is IOException ||
                                            failure is UnauthorizedAccessException)
            {
                return null;
            }
        }

        private static int PageOfMark(byte mark)
        {
            if (mark == 0) return Unmarked;
            if (Marks.TryGetValue(mark, out int page)) return page;
            throw new NotSupportedException("the code page mark 0x" + mark.ToString("x2") +
                " of LAW1.DBF stands for no known page: pass codePage");
        }

        private static bool IsNames(string path) =>
            string.Equals(Path.GetFileName(path), "LAW1.DBF", StringComparison.OrdinalIgnoreCase);

        // The bytes of a path with their NUL, as the library opens it.
        public static byte[] EncodePath(string path)
        {
            RefuseNul(path, "dataPath");
            bool isWindows = Platform.IsWindows;
            byte[] bytes = isWindows ? Converter.ToAnsi(path) : Encoding.UTF8.GetBytes(path);
            if (path != (isWindows ? Converter.FromAnsi(bytes) : Encoding.UTF8.GetString(bytes)))
            {
                throw new ArgumentException(
                    "the code page of this process lacks a character of \"" + path +
                    "\": rename the folder", "dataPath");
            }
            Array.Resize(ref bytes, bytes.Length + 1);
            return bytes;
        }

        // The bytes of a text, with their NUL. Each character must come back from its bytes.
        public byte[] Encode(string text, string name)
        {
            RefuseNul(text, name);
            var bytes = new List<byte>();
            for (int i = 0; i < text.Length; i += 1)
            {
                if (text[i] < 0x80)
                {
                    bytes.Add((byte)text[i]);
                    continue;
                }
                string character = text.Substring(i, char.IsSurrogatePair(text, i) ? 2 : 1);
                byte[] added = converter.Encode(character);
                if (added.Length == 0 || Decode(added, added.Length) != character)
                {
                    throw new ArgumentException(
                        "code page " + number + " of the practice lacks the character '" +
                        character + "' (" + NumberOf(character) + "): replace it", name);
                }
                bytes.AddRange(added);
                i += character.Length - 1;
            }
            bytes.Add(0);
            return bytes.ToArray();
        }

        // A byte that the page leaves undefined becomes \xHH.
        public string Decode(byte[] bytes, int length)
        {
            var text = new StringBuilder();
            for (int i = 0; i < length; i += 1)
            {
                if (bytes[i] < 0x80)
                {
                    text.Append((char)bytes[i]);
                    continue;
                }
                string character = converter.Decode(new[] { bytes[i] });
                int more = 0;
                if (character.Length == 0 && i + 1 < length)
                {
                    character = converter.Decode(new[] { bytes[i], bytes[i + 1] });
                    more = 1;
                }
                bool isDefined = IsDefined(character);
                text.Append(isDefined ? character : "\\x" + bytes[i].ToString("x2"));
                if (isDefined) i += more;
            }
            return text.ToString();
        }

        // Some systems turn undefined bytes into control characters or into the private use area.
        private static bool IsDefined(string character) =>
            character.Length != 0 && character[0] >= 0xA0 &&
            (character[0] < 0xE000 || character[0] > 0xF8FF);

        private static string NumberOf(string character) =>
            "U+" + (character.Length == 2 ? char.ConvertToUtf32(character, 0) : character[0])
                .ToString("X4");

        private static void RefuseNul(string text, string name)
        {
            if (text == null) throw new ArgumentNullException(name);
            if (text.IndexOf('\0') < 0) return;
            throw new ArgumentException(
                "the text has a NUL, at which the library would cut it: remove it", name);
        }
    }

    // The user's fault file, in which the library writes the reason of some failures as a line
    // "time TAB call TAB reason". Reading it never fails a call.
    internal sealed class FaultFile
    {
        private const string Folder = "BrenikDB";
        private readonly string path = Find();
        private long sizeBeforeCall;

        // Older lines belong to other calls.
        public void BeginCall()
        {
            try
            {
                sizeBeforeCall = new FileInfo(path).Length;
            }
            catch (Exception)
            {
                sizeBeforeCall = 0;
            }
        }

        // The reason of the call's failure; empty if the library wrote none.
        public string ReasonOf(BrenikCode code)
        {
            if (!HasReason(code)) return "";
            string[] lines = Added().Split('\n');
            for (int i = lines.Length - 1; i >= 0; --i)
            {
                string[] columns = lines[i].TrimEnd('\r').Split(new[] { '\t' }, 3);
                if (columns.Length == 3) return columns[2];
            }
            return "";
        }

        private static bool HasReason(BrenikCode code) =>
            (code >= BrenikCode.DataFilesMissing && code <= BrenikCode.TableNotOpened) ||
            (code >= BrenikCode.AdditionNotStamped && code <= BrenikCode.DeletionNotStamped) ||
            code == BrenikCode.Fault;

        // What was written during the call. The library renames a file that has grown too long;
        // the new file is shorter and is read from its beginning.
        private string Added()
        {
            try
            {
                using (FileStream file = Platform.OpenShared(path))
                {
                    long size = file.Length;
                    file.Position = sizeBeforeCall <= size ? sizeBeforeCall : 0;
                    var bytes = new byte[size - file.Position];
                    Array.Resize(ref bytes, Platform.ReadAll(file, bytes));
                    return Decode(bytes);
                }
            }
            catch (Exception)
            {
                return "";
            }
        }

        private static string Decode(byte[] bytes)
        {
            try
            {
                return new UTF8Encoding(false, true).GetString(bytes);
            }
            catch (DecoderFallbackException)
            {
                return Platform.IsWindows ? Converter.FromAnsi(bytes)
                                          : Encoding.UTF8.GetString(bytes);
            }
        }

        private static string Find()
        {
            string chosen = Environment.GetEnvironmentVariable("BRENIK_FAULTS");
            if (!string.IsNullOrEmpty(chosen)) return chosen;
            string home = Environment.GetEnvironmentVariable(Platform.IsWindows ? "LOCALAPPDATA"
                                                                                : "HOME");
            return Path.Combine(home ?? "", Platform.IsWindows ? Folder : ".brenik", "Faults.log");
        }
    }

    /// <summary>A practice that is open. A process has one session at a time, and the library
    /// serves one thread at a time.</summary>
    /// <remarks>Every method can throw BrenikError with Fault and NotRegistered, and with
    /// AlreadyShutDown after ShutDown or Dispose. It throws ArgumentException, and calls nothing,
    /// if a text contains a NUL or a character that the practice's code page does not have. In a
    /// result, a byte that the page leaves undefined becomes \xHH.</remarks>
    public sealed class Session : IDisposable
    {
        private static bool isAnyOpen;

        private readonly Native native;
        private readonly CodePage page;
        private readonly FaultFile faults = new FaultFile();
        private bool isOpen;

        /// <summary>Loads the library and opens a practice.</summary>
        /// <param name="dataPath">The folder of the practice; blank for the current one. On Windows
        /// it must fit the process's ANSI code page.</param>
        /// <param name="trace">Write every call to Trace.Log in the folder.</param>
        /// <param name="library">The path of the library; empty: see Native.</param>
        /// <param name="codePage">The number of the practice's code page; 0: the one that LAW1.DBF
        /// is marked with, or 1252 if it has no mark.</param>
        /// <exception cref="BrenikError">DataFilesMissing, IndexFilesMissing, SystemTableNotOpened,
        /// TableNotOpened.</exception>
        /// <exception cref="InvalidOperationException">Another session is open, or the code page
        /// cannot be read.</exception>
        /// <exception cref="NotSupportedException">The system does not have the code page, or the
        /// mark stands for no known page.</exception>
        public Session(string dataPath, bool trace = false, string library = "", int codePage = 0)
        {
            if (isAnyOpen)
            {
                throw new InvalidOperationException(
                    "a session is open in this process: shut it down before you begin another");
            }
            byte[] path = CodePage.EncodePath(dataPath);
            native = new Native(library);
            page = codePage == 0 ? CodePage.OfPractice(dataPath) : new CodePage(codePage);
            isAnyOpen = isOpen = true;
            faults.BeginCall();
            try
            {
                Check("BrenikInitialize", native.Initialize(path, trace ? 1 : 0, 0));
                if (page == null)
                {
                    throw new InvalidOperationException(
                        dataPath + ": the code page cannot be read from LAW1.DBF: spell the " +
                        "folder as the system does, or pass codePage");
                }
            }
            catch
            {
                Dispose();
                throw;
            }
        }

        /// <summary>Shuts the session down if it is open. Throws nothing.</summary>
        public void Dispose()
        {
            if (isOpen) Close();
        }

        /// <summary>Closes every table and releases every lock. The session is shut down
        /// afterwards, even if this throws.</summary>
        /// <exception cref="BrenikError">AlreadyShutDown.</exception>
        public void ShutDown()
        {
            BeginCall("BrenikShutDown");
            Check("BrenikShutDown", Close());
        }

        private BrenikCode Close()
        {
            isAnyOpen = isOpen = false;
            page?.Dispose();
            return native.ShutDown();
        }

        /// <summary>Notes in the change journal that the host itself has appended a record, and
        /// makes that record current.</summary>
        /// <exception cref="BrenikError">BadTable, BadRecord, AdditionNotStamped.</exception>
        public void AddedRecord(int table, int record)
        {
            BeginCall("BrenikAddedRecord");
            Check("BrenikAddedRecord", native.AddedRecord(table, record));
        }

        /// <summary>Notes in the change journal that the host itself has marked a record deleted,
        /// and makes that record current.</summary>
        /// <exception cref="BrenikError">BadTable, BadRecord, DeletionNotStamped.</exception>
        public void DeletedRecord(int table, int record)
        {
            BeginCall("BrenikDeletedRecord");
            Check("BrenikDeletedRecord", native.DeletedRecord(table, record));
        }

        /// <summary>Starts a new record with empty fields. A second Start replaces the first.
        /// </summary>
        /// <exception cref="BrenikError">BadTable.</exception>
        public void AddStart(int table)
        {
            BeginCall("BrenikAddStart");
            int number = 0;
            Check("BrenikAddStart", native.AddStart(table, ref number));
        }

        /// <summary>Appends the new record and returns its identifier.</summary>
        /// <param name="table">The table that AddStart named.</param>
        /// <param name="contact">For a matter: the identifier of the contact to link it to.</param>
        /// <exception cref="BrenikError">NotCurrent, AppendFailed, DuplicateCode (table 7); for a
        /// matter also IdentifierNotFound and TableNotOpened. BrenikError.Identifier says whether a
        /// record exists: do not add a matter again that has one.</exception>
        public string AddEnd(int table, string contact = "")
        {
            BeginCall("BrenikAddEnd");
            byte[] given = page.Encode(contact, "contact");
            if (given.Length != 1 && given.Length != Native.AddEndBuffer)
            {
                throw new ArgumentException(
                    "\"" + contact + "\" is not an identifier: pass " + Native.IdentifierLength +
                    " characters or none", "contact");
            }
            var buffer = new byte[Native.AddEndBuffer];
            given.CopyTo(buffer, 0);
            BrenikCode code = native.AddEnd(table, buffer);
            string identifier = page.Decode(buffer, Native.IdentifierLength).TrimEnd(' ', '\0');
            Check("BrenikAddEnd", code, NamesRecord(code) ? identifier : "");
            return identifier;
        }

        // After the other codes the buffer has the text on entry or blanks.
        private static bool NamesRecord(BrenikCode code) =>
            code == BrenikCode.TableNotOpened || code == BrenikCode.IdentifierNotFound ||
            code == BrenikCode.AppendFailed || code == BrenikCode.DuplicateCode;

        /// <summary>Starts an edit of the record with an identifier, or of the first one whose
        /// identifier begins with the text. Pass record 0 to SetField and EditEnd, and make no
        /// other call in between.</summary>
        /// <exception cref="BrenikError">BadTable, IdentifierNotFound.</exception>
        public void EditStart(int table, string identifier)
        {
            BeginCall("BrenikEditStart");
            byte[] bytes = page.Encode(identifier, "identifier");
            int number = 0;
            Check("BrenikEditStart", native.EditStart(table, bytes, ref number));
        }

        /// <summary>Starts an edit of a record by its number. The record may be deleted.</summary>
        /// <exception cref="BrenikError">BadTable, BadRecord.</exception>
        public void EditBegin(int table, int record)
        {
            BeginCall("BrenikEditBegin");
            int number = 0;
            Check("BrenikEditBegin", native.EditBegin(table, record, ref number));
        }

        /// <summary>Sets one field of the transaction. The library converts the text to the field's
        /// type; text that does not convert becomes 0, the empty date or false, without an error.
        /// </summary>
        /// <param name="table">The table that the Start named.</param>
        /// <param name="record">The record of the transaction; 0 for the current one, and for a new
        /// record.</param>
        /// <param name="field">The field's name, in any case.</param>
        /// <param name="text">A number with a decimal point; a date as MM/DD/YYYY or YYYYMMDD; "Y",
        /// "T" or "1" for true.</param>
        /// <exception cref="BrenikError">NotCurrent, BadRecord, UnknownField.</exception>
        public void SetField(int table, int record, string field, string text)
        {
            BeginCall("BrenikSetField");
            byte[] name = page.Encode(field, "field");
            byte[] bytes = page.Encode(text, "text");
            Check("BrenikSetField", native.SetField(table, record, name, bytes));
        }

        /// <summary>Writes the whole edited record under a lock, and notes in the change journal
        /// which fields changed. The transaction stays, so that the host can repeat a refused call.
        /// </summary>
        /// <exception cref="BrenikError">NotCurrent, BadRecord, LockRefused, EditNotStamped.
        /// </exception>
        public void EditEnd(int table, int record = 0)
        {
            BeginCall("BrenikEditEnd");
            Check("BrenikEditEnd", native.EditEnd(table, record));
        }

        /// <summary>Returns the 23 items that describe the practice's own contact; none if the
        /// practice names no such contact.</summary>
        /// <exception cref="BrenikError">Only Fault and NotRegistered.</exception>
        public string[] GetMyFirm()
        {
            BeginCall("BrenikGetMyFirm");
            var buffer = new byte[Native.FirmBuffer];
            Prime(buffer, Native.FirmLength);
            Check("BrenikGetMyFirm", native.GetMyFirm(buffer));
            string firm = page.Decode(buffer, Array.IndexOf(buffer, (byte)0));
            int end = firm.LastIndexOf('|');  // one byte of the blanks follows it
            return end < 0 ? new string[0] : firm.Substring(0, end).Split('|');
        }

        /// <summary>Returns the identifier of the contact with an ID (table 1) or of the matter
        /// with a case number (table 3), in any letter case. Makes its record current.</summary>
        /// <exception cref="BrenikError">BadTable, KeyNotFound.</exception>
        public string GetU_ID(int table, string key)
        {
            BeginCall("BrenikGetU_ID");
            byte[] bytes = page.Encode(key, "key");
            var buffer = new byte[Native.GetU_IDBuffer];
            Prime(buffer, Native.IdentifierLength);
            Check("BrenikGetU_ID", native.GetU_ID(table, bytes, buffer));
            return page.Decode(buffer, Native.IdentifierLength).TrimEnd(' ');
        }

        // The library writes no more than the length of the text that it finds in a buffer.
        private static void Prime(byte[] buffer, int length)
        {
            for (int i = 0; i < length; ++i) buffer[i] = (byte)' ';
        }

        private void BeginCall(string function)
        {
            faults.BeginCall();
            if (!isOpen) throw new BrenikError(function, BrenikCode.AlreadyShutDown, "", "");
        }

        private void Check(string function, BrenikCode code, string identifier = "")
        {
            if (code == BrenikCode.Success) return;
            throw new BrenikError(function, code, identifier, faults.ReasonOf(code));
        }
    }
}
