// Adds a contact with a matter, looks the contact up, and prints what the change journal says.
//
//     first_contact PRACTICE [LIBRARY [BRENIK]]
//
// LIBRARY is the path of the library and BRENIK that of the companion tool. Without them, the
// program takes those beside itself or, failing that, those that the system finds.

using System;
using System.Diagnostics;
using System.IO;
using BrenikDB;

internal static class FirstContact
{
    private static int Main(string[] arguments)
    {
        if (arguments.Length < 1 || arguments.Length > 3)
        {
            Console.Error.WriteLine("usage: first_contact PRACTICE [LIBRARY [BRENIK]]");
            return 1;
        }
        try
        {
            AddContactWithMatter(arguments[0], arguments.Length > 1 ? arguments[1] : "");
            return PrintJournal(arguments[0], arguments.Length > 2 ? arguments[2] : "");
        }
        catch (Exception failure)
        {
            Console.Error.WriteLine(failure.Message);
            return 1;
        }
    }

    private static void AddContactWithMatter(string folder, string library)
    {
        using (var practice = new Session(folder, library: library))
        {
            practice.AddStart(Tables.Names);
            practice.SetField(Tables.Names, 0, "ID", "MULLER");
            practice.SetField(Tables.Names, 0, "LAST", "Müller");
            practice.SetField(Tables.Names, 0, "FIRST", "Zoë");
            string contact = practice.AddEnd(Tables.Names);
            Console.WriteLine("contact " + contact);

            practice.AddStart(Tables.Matters);
            practice.SetField(Tables.Matters, 0, "CASENUM", "2026-MULLER-1");
            practice.SetField(Tables.Matters, 0, "MATTER", "Müller v. Okafor");
            Console.WriteLine("matter " + practice.AddEnd(Tables.Matters, contact));

            Console.WriteLine("found " + practice.GetU_ID(Tables.Names, "muller"));
            practice.ShutDown();
        }
    }

    private static int PrintJournal(string folder, string brenik)
    {
        Console.Out.Flush();  // the tool writes to the same place
        string beside = Path.Combine(AppDomain.CurrentDomain.BaseDirectory, "brenik.exe");
        string program = brenik.Length != 0 ? brenik : File.Exists(beside) ? beside : "brenik";
        string command = "journal \"" + folder.TrimEnd('\\') + "\" --limit 3";
        using (Process tool = Process.Start(new ProcessStartInfo(program, command)
                                            { UseShellExecute = false }))
        {
            tool.WaitForExit();
            return tool.ExitCode;
        }
    }
}
