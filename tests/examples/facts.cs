// Prints what C# makes of the records and functions of Kestrelkit.cs.
using System;
using System.Reflection;
using System.Runtime.CompilerServices;
using System.Runtime.InteropServices;

internal static class Facts
{
    private static string NameOf(Type type)
    {
        return (type.IsEnum ? Enum.GetUnderlyingType(type) : type).Name;
    }

    private static string NameOf(ParameterInfo parameter)
    {
        var type = parameter.ParameterType;
        if (type == typeof(string))
        {
            var marshalling = parameter.GetCustomAttribute<MarshalAsAttribute>();
            return marshalling == null ? "text" : marshalling.Value.ToString();
        }
        if (type == typeof(char[]))
        {
            return "text";
        }
        return type.IsByRef || type.IsArray ? NameOf(type.GetElementType()) + "*" : NameOf(type);
    }

    private static void PrintRecord(Type record)
    {
        Console.WriteLine("record {0} {1}", record.Name, Marshal.SizeOf(record));
        foreach (var field in record.GetFields())
        {
            var buffer = field.GetCustomAttribute<FixedBufferAttribute>();
            Console.WriteLine("field {0} {1} {2} {3} {4}", record.Name, field.Name,
                              Marshal.OffsetOf(record, field.Name),
                              NameOf(buffer == null ? field.FieldType : buffer.ElementType),
                              buffer == null ? 1 : buffer.Length);
        }
    }

    private static void PrintExport(MethodInfo method)
    {
        var import = method.GetCustomAttribute<DllImportAttribute>();
        Console.Write("export {0} {1} {2} {3}", method.Name, import.EntryPoint, import.CharSet,
                      NameOf(method.ReturnType));
        foreach (var parameter in method.GetParameters())
        {
            Console.Write(" {0}", NameOf(parameter));
        }
        Console.WriteLine();
    }

    private static void Main()
    {
        foreach (var type in typeof(Kestrelkit.Native).Assembly.GetTypes())
        {
            if (type.Namespace == "Kestrelkit" && type.IsValueType && !type.IsEnum && !type.IsNested)
            {
                PrintRecord(type);
            }
        }
        foreach (var method in typeof(Kestrelkit.Native).GetMethods(BindingFlags.Static | BindingFlags.Public))
        {
            PrintExport(method);
        }
    }
}
