--  Uses the library from a language that does not read C headers: prints what some functions return,
--  and the report's sentence.

with Ada.Text_IO;
with Ada.Characters.Conversions;
with Interfaces;   use Interfaces;
with Interfaces.C; use Interfaces.C;
with System;

procedure Ada_Program is

   type Report is record
      Size         : Unsigned_32;
      Result       : Integer_32;
      System_Error : Unsigned_32;
      Sentence     : wchar_array (0 .. 511);
   end record with Convention => C;

   function Open
     (Settings : System.Address; Session : access System.Address; Answer : access Report)
      return Integer_32
   with Import, Convention => C, External_Name => "AppUpdateOpen";

   function Start (Session : System.Address; Answer : access Report) return Integer_32
   with Import, Convention => C, External_Name => "AppUpdateStart";

   function Is_Being_Installed return Integer_32
   with Import, Convention => C, External_Name => "AppUpdateIsBeingInstalled";

   Session : aliased System.Address := System.Null_Address;
   Answer  : aliased Report :=
     (Size => Report'Size / 8, Result => -1, System_Error => 1, Sentence => (others => wide_nul));

   procedure Tell (Name : String; Result : Integer_32) is
   begin
      Ada.Text_IO.Put_Line
        (Name & Result'Image & Answer.Result'Image & Answer.System_Error'Image & " "
         & Ada.Characters.Conversions.To_String (To_Ada (Answer.Sentence)));
   end Tell;

begin
   Tell ("Open", Open (System.Null_Address, Session'Access, Answer'Access));
   Tell ("Start", Start (Session, Answer'Access));
   Ada.Text_IO.Put_Line ("IsBeingInstalled" & Is_Being_Installed'Image);
end Ada_Program;
