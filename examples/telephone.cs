// A telephone program: who is calling, which of the caller's matters are open, and a note of the
// call.
//
//     telephone PRACTICE NUMBER [LIBRARY [BRENIK]]
//
// The library changes a practice; it does not search one by telephone number. So the records are
// read by the companion tool, as JSON with one record per line. The note is added by the library,
// like every change. LIBRARY is the path of the library and BRENIK that of the tool. Without them,
// the system searches for both. Compile this file together with bindings/csharp/BrenikDB.cs.

using System;
using System.Collections.Generic;
using System.Diagnostics;
using System.IO;
using System.Linq;
using System.Text;
using System.Text.RegularExpressions;
using BrenikDB;

internal static class Telephone
{
    private const int NoSuchKey = 1;  // exit code of the tool
    private static readonly string[] Telephones = { "DAYPHONE", "EVEPHONE", "PHONE3", "PHONE4" };

    private static string practice;
    private static string tool;

    private static int Main(string[] arguments)
    {
        if (arguments.Length < 2 || arguments.Length > 4)
        {
            Console.Error.WriteLine("usage: telephone PRACTICE NUMBER [LIBRARY [BRENIK]]");
            return 2;
        }
        practice = arguments[0];
        tool = arguments.Length > 3 ? arguments[3] : "brenik";
        try
        {
            return Answer(arguments[1], arguments.Length > 2 ? arguments[2] : "");
        }
        catch (Exception failure)
        {
            Console.Error.WriteLine(failure.Message);
            return 1;
        }
    }

    private static int Answer(string number, string library)
    {
        List<string> callers = Callers(number);
        foreach (string caller in callers)
        {
            Console.WriteLine("caller " + TextOf(caller, "U_ID") + " " + TextOf(caller, "LAST") +
                              ", " + TextOf(caller, "FIRST"));
        }
        if (callers.Count != 1)
        {
            Console.Error.WriteLine(callers.Count + " contacts have the number " + number +
                                    ": the call is not noted");
            return 1;
        }
        string contact = TextOf(callers[0], "U_ID");
        List<string> matters = OpenMatters(contact);
        foreach (string matter in matters)
        {
            Console.WriteLine("matter " + TextOf(matter, "CASENUM") + " " +
                              TextOf(matter, "MATTER"));
        }
        string text = "Called from " + number + ". Open matters: " + matters.Count + ".";
        Console.WriteLine("note " + NoteCall(library, contact, text));
        return 0;
    }

    private static List<string> Callers(string number)
    {
        string wanted = Digits(number);
        if (wanted.Length == 0) return new List<string>();
        return Records("LAW1", "--all")
            .Where(contact => Telephones.Any(field => Digits(TextOf(contact, field)) == wanted))
            .ToList();
    }

    // A cross-reference ties a contact (U_ID1) to a matter (U_ID3).
    private static List<string> OpenMatters(string contact) =>
        Records("LAW9", "--all")
            .Where(link => TextOf(link, "U_ID1") == contact && TextOf(link, "U_ID3") != "")
            .SelectMany(link => Records("LAW3", "--order U_ID --seek " + TextOf(link, "U_ID3")))
            .Where(matter => matter.Contains("\"ACTIVE\":true"))
            .ToList();

    private static string NoteCall(string library, string contact, string text)
    {
        using (var session = new Session(practice, library: library))
        {
            session.AddStart(Tables.Notes);
            session.SetField(Tables.Notes, 0, "NAME_UID", contact);
            session.SetField(Tables.Notes, 0, "TOPIC", "Telephone call");
            session.SetField(Tables.Notes, 0, "NOTE", text);
            string note = session.AddEnd(Tables.Notes);
            session.ShutDown();
            return note;
        }
    }

    // The records that the tool shows, without deleted ones.
    private static List<string> Records(string table, string chosen)
    {
        string command = "show \"" + practice.TrimEnd('\\') + "\" " + table + " --json " + chosen;
        var start = new ProcessStartInfo(tool, command)
        {
            UseShellExecute = false,
            RedirectStandardOutput = true,
            StandardOutputEncoding = Encoding.UTF8
        };
        using (Process shown = Process.Start(start))
        {
            string[] lines = shown.StandardOutput.ReadToEnd().Split('\n');
            shown.WaitForExit();
            if (shown.ExitCode != 0 && shown.ExitCode != NoSuchKey)
            {
                throw new IOException(tool + ": could not show " + table + " of " + practice);
            }
            return lines.Where(line => line.Contains("\"deleted\":false")).ToList();
        }
    }

    // The text of a field; empty if the field is empty or not a text.
    private static string TextOf(string record, string field)
    {
        Match found = Regex.Match(record, "\"" + field + "\":\"((?:[^\"\\\\]|\\\\.)*)\"");
        return Regex.Replace(found.Groups[1].Value, "\\\\([\"\\\\])", "$1");
    }

    private static string Digits(string text) =>
        new string(text.Where(c => c >= '0' && c <= '9').ToArray());
}
